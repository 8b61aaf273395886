#pragma once

namespace oru {

/// The number at the head of a text as strtod reads it in the C locale, whatever the process's locale is: leading
/// blanks are skipped, what follows the number is ignored, no number gives 0.
double parseNumber(const char* text);

}  // namespace oru
