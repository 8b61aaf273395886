#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <vector>

#include "backends/virtual_bus/bus_files.hpp"
#include "oru/CameraOne.hpp"
#include "support/transport_suppressions.hpp"

namespace oru {
namespace {

constexpr const char* kPhotographs = "/usr/share/doc/opencv-doc/examples/data";
const cv::Size kBoard(9, 6);

struct Calibration {
    cv::Mat matrix;
    cv::Mat distortion;
};

Calibration readCalibration() {
    Calibration calibration;
    const cv::FileStorage file(std::string(kPhotographs) + "/left_intrinsics.yml", cv::FileStorage::READ);
    file["camera_matrix"] >> calibration.matrix;
    file["distortion_coefficients"] >> calibration.distortion;
    return calibration;
}

std::vector<std::string> photographs() {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(kPhotographs, error)) {
        const std::string name = entry.path().filename().string();
        if (name.size() == 10 && name.starts_with("left") && name.ends_with(".jpg")) {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// How far the corners of each row lie from that row's straight line, root mean square over the board, as a share of
/// the distance between two corners; negative when the board is not found.
double bend(const cv::Mat& grey) {
    std::vector<cv::Point2f> corners;
    if (!cv::findChessboardCorners(grey, kBoard, corners)) {
        return -1.0;
    }
    // The same share of a square in every image, whatever its scale.
    const int window = std::max(3, static_cast<int>(std::lround(cv::norm(corners[1] - corners[0]) / 5.0)));
    cv::cornerSubPix(grey, corners, {window, window}, {-1, -1},
                     {cv::TermCriteria::EPS + cv::TermCriteria::COUNT, 40, 1e-4});
    double squares = 0.0;
    double spacing = 0.0;
    for (int row = 0; row < kBoard.height; ++row) {
        const auto* first = &corners[static_cast<std::size_t>(row * kBoard.width)];
        const std::vector<cv::Point2f> line(first, first + kBoard.width);
        cv::Vec4f fit;
        cv::fitLine(line, fit, cv::DIST_L2, 0, 0.01, 0.01);
        for (const cv::Point2f& point : line) {
            const double across = static_cast<double>((point.x - fit[2]) * fit[1] - (point.y - fit[3]) * fit[0]);
            squares += across * across;
        }
        spacing += cv::norm(line.back() - line.front()) / (kBoard.width - 1) / kBoard.height;
    }
    return std::sqrt(squares / static_cast<double>(corners.size())) / spacing;
}

std::string configuration(const std::string& folder, const Calibration& calibration) {
    static constexpr const char* kNames[] = {"k1", "k2", "p1", "p2", "k3"};
    std::ostringstream text;
    text << std::setprecision(12) << "[camera 0]\nmodel = 30\nserial = 30770013\nsource = footage\nfootage = " << folder
         << "\nfps = 4\nfx = " << calibration.matrix.at<double>(0, 0)
         << "\nfy = " << calibration.matrix.at<double>(1, 1) << "\ncx = " << calibration.matrix.at<double>(0, 2)
         << "\ncy = " << calibration.matrix.at<double>(1, 2) << '\n';
    for (int i = 0; i < 5; ++i) {
        text << kNames[i] << " = " << calibration.distortion.at<double>(i) << '\n';
    }
    return text.str();
}

std::vector<cv::Mat> rectifiedImages(const virtual_bus::TemporaryDirectory& folder) {
    std::vector<cv::Mat> images;
    CameraOne camera;
    InitParametersOne parameters;
    parameters.input.setFromCameraID(0);
    parameters.requested_resolution = HD600;
    parameters.settings_path = String((folder.path("") + "/").c_str());
    EXPECT_EQ(camera.open(parameters), SUCCESS);
    Mat view;
    while (camera.grab() == SUCCESS) {
        EXPECT_EQ(camera.retrieveImage(view, RECTIFIED_GRAY), SUCCESS);
        images.push_back(cv::Mat(static_cast<int>(view.getHeight()), static_cast<int>(view.getWidth()), CV_8UC1,
                                 view.getPtr<unsigned char>(CPU), view.getStepBytes(CPU))
                             .clone());
    }
    return images;
}

TEST(Chessboard, RowsOfPhotographsComeOutAsStraightAsOpenCvMakesThem) {
    const auto files = photographs();
    if (files.empty()) {
        GTEST_SKIP() << "the photographs of the package opencv-doc are not installed";
    }
    const Calibration calibration = readCalibration();
    const virtual_bus::TemporaryDirectory folder;
    std::filesystem::create_directories(folder.path("photographs"));
    double raw = 0.0;
    double reference = 0.0;
    int boards = 0;
    for (const std::string& file : files) {
        std::filesystem::copy(file, folder.path("photographs"));
        const cv::Mat image = cv::imread(file, cv::IMREAD_GRAYSCALE);
        cv::Mat straight;
        cv::undistort(image, straight, calibration.matrix, calibration.distortion);
        const double before = bend(image);
        const double after = bend(straight);
        if (before >= 0.0 && after >= 0.0) {
            raw += before;
            reference += after;
            ++boards;
        }
    }
    ASSERT_GE(boards, 8);
    const std::string file = folder.write("bus.ini", configuration("photographs", calibration));
    ASSERT_EQ(::setenv("KORU_VIRTUAL_BUS", file.c_str(), 1), 0);

    const auto images = rectifiedImages(folder);

    double ours = 0.0;
    int found = 0;
    for (const cv::Mat& image : images) {
        if (const double value = bend(image); value >= 0.0) {
            ours += value;
            ++found;
        }
    }
    ASSERT_GE(found, 6) << "of " << images.size() << " pictures";
    std::cout << "bend in squares: raw " << raw / boards << ", OpenCV " << reference / boards << " (" << boards
              << " boards), here " << ours / found << " (" << found << " boards)\n";
    EXPECT_LT(reference / boards, 0.6 * raw / boards) << "the photographs are visibly bent";
    EXPECT_LT(ours / found, 1.25 * reference / boards);
}

}  // namespace
}  // namespace oru
