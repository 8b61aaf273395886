#pragma once

#include <cstdlib>
#include <string>

namespace oru::doubles {

/// Sets an environment variable, or unsets it with null, for the life of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name) {
        if (const char* before = std::getenv(name); before != nullptr) {
            had_ = true;
            before_ = before;
        }
        value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
    }
    ~ScopedEnvironment() { had_ ? ::setenv(name_.c_str(), before_.c_str(), 1) : ::unsetenv(name_.c_str()); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::string before_;
    bool had_ = false;
};

}  // namespace oru::doubles
