#pragma once

#include <array>
#include <string>

#include "koruone/output/time_plot.hpp"
#include "oru/sensors.hpp"

namespace koruone {

/// The CSV header of imuCsvRow: timestamp_ns, then one column a value, its unit at the end of its name.
std::string imuCsvHeader();
/// One sample as a row; a column whose sensor is absent is empty.
std::string imuCsvRow(const oru::SensorsData& sample);

/// Angular rate, acceleration and orientation: what a plot of samples shows.
std::vector<PlotPanel> imuPanels();

/// Turns samples into the values of imuPanels, orientation as three angles without jumps from one turn to the next.
class ImuPlotValues {
public:
    std::array<double, TimePlot::kMostLines> next(const oru::SensorsData& sample);

private:
    std::array<double, 3> previous{};
    bool started = false;
};

}  // namespace koruone
