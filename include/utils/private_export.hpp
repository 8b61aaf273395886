#pragma once

/// Marks what the modules of the shared library take from it, because there may be only one of it in a process.
/// Exported, but no part of the public interface.
#define ORU_PRIVATE_API __attribute__((visibility("default")))
