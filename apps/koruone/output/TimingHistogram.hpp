#pragma once

#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace koruone {

/// Durations in constant memory: 128 classes for each power of two nanoseconds, each with its latest sample, so a
/// percentile is within 0.8 % and exact where the samples around it are equal.
class TimingHistogram {
public:
    void record(std::chrono::nanoseconds duration);
    [[nodiscard]] uint64_t count() const { return samples; }
    /// The duration that `percent` of the samples do not exceed, in microseconds; 0 without samples.
    [[nodiscard]] double percentileUs(double percent) const;
    /// Calls visit(duration in microseconds, samples) for each class that holds samples.
    template <class Visit>
    void forEach(Visit visit) const {
        for (std::size_t i = 0; i < perClass.size(); ++i) {
            if (perClass[i] != 0) {
                visit(static_cast<double>(latest[i]) / 1000.0, perClass[i]);
            }
        }
    }

private:
    static constexpr unsigned kClassBits = 7;
    static constexpr std::size_t kClasses = std::size_t{1} << kClassBits;

    [[nodiscard]] static std::size_t slot(uint64_t ns);

    using PerClass = std::array<uint64_t, (64 - kClassBits + 1) * kClasses>;

    PerClass perClass{};
    PerClass latest{};  ///< nanoseconds
    uint64_t samples = 0;
};

}  // namespace koruone
