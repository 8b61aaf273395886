#pragma once

namespace oru {

/// Registers the factory of the real collaborators as the process's default; repeated calls change nothing.
/// A facade calls it, so that also a global camera finds its collaborators. Threads: any.
void registerBuiltInFactory();

}  // namespace oru
