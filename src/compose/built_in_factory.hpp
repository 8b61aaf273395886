#pragma once

namespace oru {

/// Registers the factory of the real neighbours as the process's default; repeated calls change nothing.
/// A facade calls it, so that also a global camera finds its neighbours. Threads: any.
void registerBuiltInFactory();

}  // namespace oru
