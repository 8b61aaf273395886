#pragma once

#include <string>

// Environment switches, read anew at every call. Global namespace: every module of the kit shares them.
// Threads: any, as long as nobody changes the environment meanwhile.

/// "1", "enabled", "on", "enable", "yes" or "y", in any case and without blanks around.
bool is_enabled(std::string value);

/// KORU_SDK_REAL_TIME_RLX: play recorded files at their recorded pace. Unset: false.
bool check_env_var_real_time_rlx();

/// KORU_SDK_DISABLE_AUTO_REPAIR_RLX switches the automatic repair off. True: repair.
bool check_env_var_repair_rlx_in_place();

/// KORU_SDK_STREAM_VERSION: exactly "1" gives 1, anything else 2.
int check_env_var_stream_version();
