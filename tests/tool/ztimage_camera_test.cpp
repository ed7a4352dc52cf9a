// ztimage cameras and grab against Aravis's in-process simulated camera (--interface fake,
// which sends nothing on any network).
#include <gtest/gtest.h>

#include <algorithm>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "ToolRun.h"

using namespace tooltest;

TEST(ToolCamera, ListsGrabsConvertsAndSavesEveryFrame) {
    TempDirectory dir;
    RunResult run = runTool({"cameras", "--interface", "fake"}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("Fake_1"), std::string::npos) << run.out;

    run = runTool({"grab", "--interface", "fake", "--frames", "3", "--to", "RGB8", "--out-dir", "out"},
                  dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("grabbed 3 frames of Mono8 512 x 512"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("0 incomplete, 0 underruns"), std::string::npos) << run.out;
    ASSERT_EQ(dir.entries("out"),
              (std::vector<std::string>{"frame-000000.png", "frame-000001.png", "frame-000002.png"}));
    for (const std::string& name : dir.entries("out")) {
        const cv::Mat image = cv::imread(dir.file("out/" + name), cv::IMREAD_UNCHANGED);
        ASSERT_EQ(image.type(), CV_8UC3) << name;
        EXPECT_EQ(image.cols, 512) << name;
        // A grey camera frame converted to RGB: all three channels alike, and not all black.
        std::vector<cv::Mat> planes;
        cv::split(image, planes);
        EXPECT_EQ(cv::norm(planes[0], planes[1], cv::NORM_INF), 0) << name;
        EXPECT_EQ(cv::norm(planes[1], planes[2], cv::NORM_INF), 0) << name;
        EXPECT_GT(cv::norm(planes[0], cv::NORM_INF), 0) << name;
    }
}

TEST(ToolCamera, AMissingCameraOrARefusedSettingIsOneLineAndStatusOne) {
    TempDirectory dir;
    // Each setting with the words its message must hold.
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--camera", "NoSuchCamera"}, "NoSuchCamera"},
        {{"--format", "BayerRG12p"}, "PixelFormat 0x010C0059"},
        {{"--width", "9000"}, "Width = 9000"},
    };
    for (const auto& [setting, words] : cases) {
        std::vector<std::string> args = {"grab", "--interface", "fake", "-o", "x.png"};
        args.insert(args.end(), setting.begin(), setting.end());
        const RunResult run = runTool(args, dir.path());
        EXPECT_EQ(run.status, 1) << words;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_NE(run.err.find(words), std::string::npos) << run.err;
    }
    EXPECT_TRUE(dir.entries().empty()) << "nothing written";
}
