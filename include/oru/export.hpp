#pragma once

/// Marks what the shared library exports; everything else stays hidden.
#define ORU_API __attribute__((visibility("default")))
