#include "utils/yuv.hpp"

namespace oru {
namespace {

void splitRow(const unsigned char* yuyv, unsigned char* y, unsigned char* u, unsigned char* v, std::size_t pairs) {
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        y[2 * pair] = yuyv[4 * pair];
        y[2 * pair + 1] = yuyv[4 * pair + 2];
        u[pair] = yuyv[4 * pair + 1];
        v[pair] = yuyv[4 * pair + 3];
    }
}

unsigned char mean(unsigned char a, unsigned char b) {
    return static_cast<unsigned char>((a + b + 1) / 2);
}

struct RowPair {
    const unsigned char* upper;
    const unsigned char* lower;
};

void splitRowPair(RowPair rows, unsigned char* upperY, unsigned char* lowerY, unsigned char* u, unsigned char* v,
                  std::size_t pairs) {
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        const unsigned char* upper = rows.upper + 4 * pair;
        const unsigned char* lower = rows.lower + 4 * pair;
        upperY[2 * pair] = upper[0];
        upperY[2 * pair + 1] = upper[2];
        lowerY[2 * pair] = lower[0];
        lowerY[2 * pair + 1] = lower[2];
        u[pair] = mean(upper[1], lower[1]);
        v[pair] = mean(upper[3], lower[3]);
    }
}

void joinRow(const unsigned char* y, const unsigned char* u, const unsigned char* v, unsigned char* yuyv,
             std::size_t pairs) {
    for (std::size_t pair = 0; pair < pairs; ++pair) {
        yuyv[4 * pair] = y[2 * pair];
        yuyv[4 * pair + 1] = u[pair];
        yuyv[4 * pair + 2] = y[2 * pair + 1];
        yuyv[4 * pair + 3] = v[pair];
    }
}

}  // namespace

void yuyvToI422(const unsigned char* yuyv, std::size_t yuyvStep, const YuvPlanes& planes, std::size_t width,
                std::size_t height) {
    for (std::size_t row = 0; row < height; ++row) {
        splitRow(yuyv + row * yuyvStep, planes.y + row * planes.y_step, planes.u + row * planes.u_step,
                 planes.v + row * planes.v_step, width / 2);
    }
}

void yuyvToI420(const unsigned char* yuyv, std::size_t yuyvStep, const YuvPlanes& planes, std::size_t width,
                std::size_t height) {
    for (std::size_t row = 0; row + 1 < height; row += 2) {
        const unsigned char* upper = yuyv + row * yuyvStep;
        unsigned char* upperY = planes.y + row * planes.y_step;
        splitRowPair({upper, upper + yuyvStep}, upperY, upperY + planes.y_step, planes.u + row / 2 * planes.u_step,
                     planes.v + row / 2 * planes.v_step, width / 2);
    }
    if (height % 2 == 1) {
        const std::size_t row = height - 1;
        splitRow(yuyv + row * yuyvStep, planes.y + row * planes.y_step, planes.u + row / 2 * planes.u_step,
                 planes.v + row / 2 * planes.v_step, width / 2);
    }
}

void i422ToYuyv(const ConstYuvPlanes& planes, unsigned char* yuyv, std::size_t yuyvStep, std::size_t width,
                std::size_t height) {
    for (std::size_t row = 0; row < height; ++row) {
        joinRow(planes.y + row * planes.y_step, planes.u + row * planes.u_step, planes.v + row * planes.v_step,
                yuyv + row * yuyvStep, width / 2);
    }
}

void i420ToYuyv(const ConstYuvPlanes& planes, unsigned char* yuyv, std::size_t yuyvStep, std::size_t width,
                std::size_t height) {
    for (std::size_t row = 0; row < height; ++row) {
        joinRow(planes.y + row * planes.y_step, planes.u + row / 2 * planes.u_step, planes.v + row / 2 * planes.v_step,
                yuyv + row * yuyvStep, width / 2);
    }
}

}  // namespace oru
