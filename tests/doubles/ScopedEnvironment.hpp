#pragma once

#include <cstdlib>
#include <string>

namespace oru::doubles {

/// Sets an environment variable, or unsets it with null, for the life of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* variable, const char* value) : name(variable) {
        if (const char* before = std::getenv(variable); before != nullptr) {
            wasSet = true;
            previous = before;
        }
        value == nullptr ? ::unsetenv(variable) : ::setenv(variable, value, 1);
    }
    ~ScopedEnvironment() { wasSet ? ::setenv(name.c_str(), previous.c_str(), 1) : ::unsetenv(name.c_str()); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name;
    std::string previous;
    bool wasSet = false;
};

}  // namespace oru::doubles
