#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace oru {

/// What a contract is run over: something that makes a subject anew for each test, and its name.
template <class Interface>
struct NamedSubject {
    const char* name;
    std::unique_ptr<Interface> (*make)();

    template <class Subject>
    static NamedSubject of(const char* name) {
        return {name, []() -> std::unique_ptr<Interface> { return std::make_unique<Subject>(); }};
    }
    static std::string nameOf(const testing::TestParamInfo<NamedSubject>& subject) { return subject.param.name; }
};

}  // namespace oru
