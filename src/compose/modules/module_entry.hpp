#pragma once

#include "compose/modules/module_tables.hpp"
#include "compose/modules/module_version.hpp"

/// The one name that a module's shared object gives out.
#define ORU_MODULE_ENTRY extern "C" __attribute__((visibility("default")))
