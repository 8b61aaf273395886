#include "calibration/numbers.hpp"

#include <locale.h>
#include <stdlib.h>

namespace oru {

double parseNumber(const char* text) {
    static const locale_t cLocale = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return ::strtod_l(text, nullptr, cLocale);
}

}  // namespace oru
