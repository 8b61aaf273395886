// For programs that are no tests, the examples above all, in builds with a sanitizer.
#include "support/transport_suppressions.hpp"
