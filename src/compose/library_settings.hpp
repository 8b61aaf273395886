#pragma once

namespace oru {

/// Settings of the linked libraries that hold for the whole process, made once before the first collaborator.
void applyLibrarySettings();

}  // namespace oru
