#include <cstdio>

#include "backends/rectifier/reference/notices.hpp"

namespace oru::rectifier {

void warn(const char* text) {
    (void)std::fprintf(stderr, "%s\n", text);
}

}  // namespace oru::rectifier
