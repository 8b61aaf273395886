#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace oru {

/// Sets or unsets an environment variable for a scope.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* variable, const char* value) : name(variable) {
        if (const char* present = ::getenv(variable); present != nullptr) {
            former = present;
        }
        assign(value);
    }
    ~EnvironmentVariable() { assign(former ? former->c_str() : nullptr); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    void assign(const char* value) const {
        if (value == nullptr) {
            ::unsetenv(name.c_str());
        } else {
            ::setenv(name.c_str(), value, 1);
        }
    }

    std::string name;
    std::optional<std::string> former;
};

}  // namespace oru
