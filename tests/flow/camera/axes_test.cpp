// Whether the axes are those that the guide names, and whether images, samples and T_BS of a data set agree through the
// whole camera.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <Eigen/Geometry>
#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "backends/virtual_bus/scene/SceneRenderer.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"
#include "oru/frames.hpp"

namespace oru {
namespace {

constexpr double kGravity = 9.80665;
constexpr int kWidth = 960;
constexpr int kHeight = 600;
constexpr uint64_t kImagePeriodNs = 50'000'000;
constexpr uint64_t kSamplePeriodNs = 5'000'000;
constexpr int kImages = 8;
constexpr uint64_t kStart = 1'403'636'579'000'000'000;
const Lens kLens{500.0, 501.0, 478.5, 301.25, {-0.2, 0.05, 0.0005, -0.0003}};

/// A camera that turns about its lens at a steady rate, carrying a sensor that is turned against it by far.
struct Motion {
    Eigen::Quaterniond body_from_camera = Eigen::Quaterniond(Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitZ()) *
                                                             Eigen::AngleAxisd(0.35, Eigen::Vector3d::UnitX()) *
                                                             Eigen::AngleAxisd(-0.2, Eigen::Vector3d::UnitY()));
    Eigen::Vector3d camera_in_body{-0.02, -0.06, 0.01};
    Eigen::Vector3d camera_rate{0.1, 0.35, -0.15};  // rad/s along the camera's axes

    [[nodiscard]] Eigen::Quaterniond worldFromCamera(double seconds) const {
        const Eigen::Quaterniond start(Eigen::AngleAxisd(0.06, Eigen::Vector3d::UnitX()));
        return start * turn(seconds);
    }
    [[nodiscard]] Eigen::Quaterniond turn(double seconds) const {
        return Eigen::Quaterniond(Eigen::AngleAxisd(camera_rate.norm() * seconds, camera_rate.normalized()));
    }
    [[nodiscard]] Eigen::Vector3d forceInBody(double seconds) const {
        const Eigen::Vector3d rate = body_from_camera * camera_rate;
        const Eigen::Vector3d gravity =
            body_from_camera * (worldFromCamera(seconds).conjugate() * Eigen::Vector3d(0, kGravity, 0));
        return -rate.cross(rate.cross(camera_in_body)) - gravity;
    }
};

std::string numbers(const Eigen::Matrix4d& matrix) {
    std::string text;
    for (int i = 0; i < 16; ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(matrix(i / 4, i % 4));
    }
    return text;
}

Eigen::Matrix4d cameraToBody(const Motion& motion) {
    Eigen::Matrix4d matrix = Eigen::Matrix4d::Identity();
    matrix.topLeftCorner<3, 3>() = motion.body_from_camera.toRotationMatrix();
    matrix.topRightCorner<3, 1>() = motion.camera_in_body;
    return matrix;
}

std::string drawnImage(virtual_bus::SceneRenderer& renderer, const Eigen::Quaterniond& worldFromCamera) {
    virtual_bus::View view;
    const Eigen::Matrix3d rotation = worldFromCamera.toRotationMatrix();
    for (int i = 0; i < 9; ++i) {
        view.rows[static_cast<std::size_t>(i / 3)][static_cast<std::size_t>(i % 3)] =
            static_cast<float>(rotation(i / 3, i % 3));
    }
    view.eye = {0.1F, 0.05F, -2.4F};
    renderer.begin(view, 0.0);
    std::string image = "P5\n" + std::to_string(kWidth) + " " + std::to_string(kHeight) + "\n255\n";
    std::vector<unsigned char> band(static_cast<std::size_t>(kWidth) * virtual_bus::SceneRenderer::kCell * 2);
    for (int i = 0; i < renderer.bands(); ++i) {
        renderer.drawBand(i, band.data());
        for (std::size_t pixel = 0; pixel < band.size(); pixel += 2) {
            image += static_cast<char>(band[pixel]);
        }
    }
    return image;
}

void writeDataSet(const doubles::TemporaryDirectory& folder, const Motion& motion) {
    virtual_bus::SceneRenderer renderer(kLens, kWidth, kHeight);
    std::string images = "#timestamp [ns],filename\n";
    std::string samples = "#timestamp [ns],w_RS_S_x [rad s^-1],w_RS_S_y,w_RS_S_z,a_RS_S_x [m s^-2],a_RS_S_y,a_RS_S_z\n";
    for (uint64_t i = 0; i < kImages; ++i) {
        const std::string time = std::to_string(kStart + i * kImagePeriodNs);
        images += time + "," + time + ".pgm\n";
        (void)folder.write(
            "set/mav0/cam0/data/" + time + ".pgm",
            drawnImage(renderer, motion.worldFromCamera(static_cast<double>(i * kImagePeriodNs) * 1e-9)));
    }
    const Eigen::Vector3d rate = motion.body_from_camera * motion.camera_rate;
    for (uint64_t i = 0; i <= kImages * kImagePeriodNs / kSamplePeriodNs; ++i) {
        const Eigen::Vector3d force = motion.forceInBody(static_cast<double>(i * kSamplePeriodNs) * 1e-9);
        samples += std::to_string(kStart + i * kSamplePeriodNs);
        for (const Eigen::Vector3d& vector : {rate, force}) {
            for (const double part : vector) {
                samples += "," + std::to_string(part);
            }
        }
        samples += "\n";
    }
    (void)folder.write("set/mav0/cam0/data.csv", images);
    (void)folder.write("set/mav0/imu0/data.csv", samples);
    (void)folder.write("set/mav0/cam0/sensor.yaml",
                       "sensor_type: camera\nT_BS:\n  cols: 4\n  rows: 4\n  data: [" + numbers(cameraToBody(motion)) +
                           "]\nrate_hz: 20\nresolution: [960, 600]\ncamera_model: pinhole\n"
                           "intrinsics: [500.0, 501.0, 478.5, 301.25]\ndistortion_model: radial-tangential\n"
                           "distortion_coefficients: [-0.2, 0.05, 0.0005, -0.0003]\n");
}

/// Camera 0 stands still, camera 1 plays the data set.
struct World {
    World() {
        writeDataSet(folder, motion);
        const std::string bus =
            folder.write("bus.ini",
                         "[camera 0]\nmodel = 30\nserial = 30770001\nmotion = rest\n"
                         "[camera 1]\nmodel = 30\nserial = 30770002\nsource = footage\nfootage = set\n");
        (void)::setenv("KORU_VIRTUAL_BUS", bus.c_str(), 1);
    }
    doubles::TemporaryDirectory folder;
    Motion motion;
};

World& world() {
    static World only;
    return only;
}

Eigen::Vector3d vectorOf(const Vector3<float>& v) {
    return Eigen::Vector3f(v[0], v[1], v[2]).cast<double>();
}

Eigen::Matrix4d matrixOf(const Transform& transform) {
    Eigen::Matrix4d matrix;
    for (int i = 0; i < 16; ++i) {
        matrix(i / 4, i % 4) =
            static_cast<double>(transform(static_cast<std::size_t>(i / 4), static_cast<std::size_t>(i % 4)));
    }
    return matrix;
}

InitParametersOne parametersFor(int id, int convention = 0) {
    InitParametersOne parameters;
    parameters.settings_path = world().folder.prefix().c_str();
    parameters.input.setFromCameraID(id);
    parameters.requested_resolution = HD600;
    parameters.axis_convention = static_cast<AXIS_CONVENTION>(convention);
    return parameters;
}

/// The guide's table: the directions of the application's x, y and z, and what it says of their hand.
std::map<int, std::pair<std::array<std::string, 3>, std::string>> guideTable() {
    std::ifstream guide(ORU_GUIDE);
    const std::regex row(R"(\| (\d) \| (\w+), (\w+), (\w+) \| (\w+)-handed.*)");
    std::map<int, std::pair<std::array<std::string, 3>, std::string>> table;
    for (std::string line; std::getline(guide, line);) {
        std::smatch part;
        if (std::regex_match(line, part, row)) {
            table[std::stoi(part[1])] = {{part[2], part[3], part[4]}, part[5]};
        }
    }
    return table;
}

Eigen::Vector3d opticalDirection(const std::string& word) {
    static const std::map<std::string, Eigen::Vector3d> directions{
        {"right", {1, 0, 0}}, {"left", {-1, 0, 0}},   {"down", {0, 1, 0}},
        {"up", {0, -1, 0}},   {"forward", {0, 0, 1}}, {"backward", {0, 0, -1}},
    };
    return directions.at(word);
}

TEST(Axes, GravityAndTheSensorsPlaceLieWhereTheGuideSaysInEveryConvention) {
    const auto table = guideTable();
    ASSERT_EQ(table.size(), 6U);
    Eigen::Vector3d force = Eigen::Vector3d::Zero();
    Eigen::Vector3d offset = Eigen::Vector3d::Zero();
    for (const auto& [convention, row] : table) {
        SCOPED_TRACE(convention);
        CameraOne camera;
        ASSERT_EQ(camera.open(parametersFor(0, convention)), SUCCESS);
        ASSERT_EQ(camera.grab(), SUCCESS);
        SensorsData data;
        ASSERT_EQ(camera.getSensorsData(data, IMAGE), SUCCESS);
        const Transform mounting = camera.getCameraInformation().sensors.imu_to_camera;
        Eigen::Matrix3d opticalFromPage;
        for (int axis = 0; axis < 3; ++axis) {
            opticalFromPage.col(axis) = opticalDirection(row.first[static_cast<std::size_t>(axis)]);
        }
        const Matrix3f opticalFromApplication =
            frames::opticalFromApplication(static_cast<AXIS_CONVENTION>(convention));
        for (int i = 0; i < 9; ++i) {
            EXPECT_EQ(opticalFromPage(i / 3, i % 3),
                      opticalFromApplication(static_cast<std::size_t>(i / 3), static_cast<std::size_t>(i % 3)));
        }
        const Eigen::Vector3d seenForce = opticalFromPage * vectorOf(data.imu.vector_2);
        const Eigen::Vector3d seenOffset = opticalFromPage * vectorOf(mounting.getTranslation());
        if (convention == 0) {
            force = seenForce;
            offset = seenOffset;
            EXPECT_LT((force - Eigen::Vector3d(0, -kGravity, 0)).norm(), 1.5) << "the camera is nearly level";
        }
        EXPECT_LT((seenForce - force).norm(), 0.3) << seenForce.transpose();
        EXPECT_LT((seenOffset - offset).norm(), 1e-3) << seenOffset.transpose();
        EXPECT_EQ(opticalFromPage.determinant() > 0 ? "right" : "left", row.second);
        (void)camera.close();
    }
}

TEST(Axes, BodyFrameOfALevelCameraFeelsItsSupportUpwards) {
    CameraOne camera;
    ASSERT_EQ(camera.open(parametersFor(0)), SUCCESS);
    ASSERT_EQ(camera.grab(), SUCCESS);
    SensorsData data;
    ASSERT_EQ(camera.getSensorsData(data, IMAGE), SUCCESS);
    EXPECT_GT(frames::toBody(data.imu.vector_2)[2], 9.0F);
}

struct Shot {
    double seconds = 0.0;  // after the first
    SensorsData sensors;
    Mat view;
};

/// The gray value of a view between pixels.
double grayAt(const Mat& view, Point at) {
    const auto x = static_cast<std::size_t>(at.x);
    const auto y = static_cast<std::size_t>(at.y);
    const auto* row = view.getPtr<unsigned char>(CPU) + y * view.getStepBytes(CPU) + x;
    const auto* next = row + view.getStepBytes(CPU);
    const double right = at.x - static_cast<double>(x);
    const double down = at.y - static_cast<double>(y);
    return (1 - down) * ((1 - right) * row[0] + right * row[1]) + down * ((1 - right) * next[0] + right * next[1]);
}

/// How alike the last view and the first one are, when pixels are followed by a rotation: their correlation.
double likeness(const CameraGeometry& geometry, const Mat& first, const Mat& last,
                const Eigen::Quaterniond& firstFromLast) {
    std::vector<std::pair<double, double>> pairs;
    for (int v = 10; v < kHeight - 10; v += 5) {
        for (int u = 10; u < kWidth - 10; u += 5) {
            const auto ray = geometry.unproject(RECTIFIED, {static_cast<double>(u), static_cast<double>(v)});
            const Eigen::Vector3d before = firstFromLast * Eigen::Vector3d(ray->x, ray->y, 1);
            const auto seen = geometry.project(RECTIFIED, {before.x(), before.y(), before.z()});
            if (seen && seen->x >= 0 && seen->y >= 0 && seen->x < kWidth - 2 && seen->y < kHeight - 2) {
                pairs.emplace_back(grayAt(last, {static_cast<double>(u), static_cast<double>(v)}),
                                   grayAt(first, *seen));
            }
        }
    }
    double meanA = 0;
    double meanB = 0;
    for (const auto& [a, b] : pairs) {
        meanA += a / static_cast<double>(pairs.size());
        meanB += b / static_cast<double>(pairs.size());
    }
    double both = 0;
    double aa = 0;
    double bb = 0;
    for (const auto& [a, b] : pairs) {
        both += (a - meanA) * (b - meanB);
        aa += (a - meanA) * (a - meanA);
        bb += (b - meanB) * (b - meanB);
    }
    return pairs.size() < 1000 ? 0.0 : both / std::sqrt(aa * bb);
}

TEST(DataSet, ImagesSamplesAndMountingAgreeThroughTheWholeCamera) {
    const Motion& motion = world().motion;
    CameraOne camera;
    ASSERT_EQ(camera.open(parametersFor(1)), SUCCESS);
    const Eigen::Matrix4d mounting = matrixOf(camera.getCameraInformation().sensors.imu_to_camera);
    Eigen::Matrix4d expected = cameraToBody(motion);
    expected.topRightCorner<3, 1>() *= 1000.0;  // millimetres
    EXPECT_LT((mounting - expected).norm(), 1e-3) << mounting;
    const CameraGeometry geometry(camera.getCameraInformation().configuration);

    std::optional<Shot> first;
    Shot last;
    ASSERT_EQ(camera.setCameraSettings(AEC_AGC, 0), SUCCESS);
    Timestamp start = 0;
    while (camera.grab() == SUCCESS) {
        Shot& shot = first ? last : first.emplace();
        start = start == 0 ? camera.getTimestamp(IMAGE) : start;
        shot.seconds = static_cast<double>(camera.getTimestamp(IMAGE) - start) * 1e-9;
        ASSERT_EQ(camera.getSensorsData(shot.sensors, IMAGE), SUCCESS);
        ASSERT_EQ(camera.retrieveImage(shot.view, RECTIFIED_GRAY), SUCCESS);
        const Eigen::Vector3d rate = vectorOf(shot.sensors.imu.vector_1) * M_PI / 180;
        EXPECT_LT((rate - motion.camera_rate).norm(), 1e-4) << rate.transpose();
        const Eigen::Vector3d up =
            matrixOf(shot.sensors.imu.pose).topLeftCorner<3, 3>() * vectorOf(shot.sensors.imu.vector_2);
        EXPECT_LT((up - Eigen::Vector3d(0, -kGravity, 0)).norm(), 0.2)
            << "the world of poses is level " << up.transpose();
    }
    ASSERT_TRUE(first.has_value());
    ASSERT_GT(last.seconds, 0.2) << "most of the images came";

    const Eigen::Quaterniond turn = motion.turn(last.seconds);
    const Eigen::Matrix3d turned = matrixOf(first->sensors.imu.pose).topLeftCorner<3, 3>().transpose() *
                                   matrixOf(last.sensors.imu.pose).topLeftCorner<3, 3>();
    EXPECT_LT(Eigen::AngleAxisd(turned.transpose() * turn.toRotationMatrix()).angle(), 0.02);
    const double followed = likeness(geometry, first->view, last.view, turn);
    EXPECT_GT(followed, 0.97);
    EXPECT_LT(likeness(geometry, first->view, last.view, turn.conjugate()), followed - 0.2);
    EXPECT_LT(likeness(geometry, first->view, last.view, Eigen::Quaterniond::Identity()), followed - 0.1);
}

}  // namespace
}  // namespace oru
