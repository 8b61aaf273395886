#pragma once

#include <memory>
#include <utility>

#include "collaborators/CollaboratorFactory.hpp"

namespace oru::doubles {

/// Makes a factory the process's default for a scope.
class ScopedPlatform {
public:
    explicit ScopedPlatform(std::shared_ptr<CollaboratorFactory> factory)
        : former(CollaboratorFactory::setProcessDefault(std::move(factory))) {}
    ~ScopedPlatform() { (void)CollaboratorFactory::setProcessDefault(former); }
    ScopedPlatform(const ScopedPlatform&) = delete;
    ScopedPlatform& operator=(const ScopedPlatform&) = delete;

private:
    std::shared_ptr<CollaboratorFactory> former;
};

}  // namespace oru::doubles
