#include "backends/virtual_bus/sensor/default_lens.hpp"

namespace oru::virtual_bus {

Lens defaultLens(MODEL model) {
    // A barrel distortion close to atan(a r) / a (a = 0.70 and 0.60) as a rational function, with small
    // tangential and prism terms such as a real calibration finds.
    if (model == MODEL_MONO_2UM) {
        return {2013.62,
                2013.05,
                1926.84,
                1071.37,
                {0.280000, 0.008777, -0.00031, 0.00024, 0.00011, 0.400000, 0.030857, 0.00018, 0.00042, -0.00013,
                 -0.00037, 0.00009}};
    }
    return {1068.42,
            1067.95,
            967.31,
            594.62,
            {0.381111, 0.016261, 0.00042, -0.00028, 0.00021, 0.544444, 0.057167, 0.00034, -0.00051, 0.00017, 0.00046,
             -0.00012}};
}

}  // namespace oru::virtual_bus
