#include <cmath>
#include <gtest/gtest.h>
#include <stdexcept>

#include "desktop/inference/layouts/output_layout.h"

namespace desktop {
namespace {

const std::map<int, ObjectClass> kClasses = {{0, ObjectClass::Person}, {1, ObjectClass::Car}};

cv::Mat tensor(const std::vector<int>& shape, const std::vector<float>& values) {
    cv::Mat mat(static_cast<int>(shape.size()), shape.data(), CV_32F);
    EXPECT_EQ(mat.total(), values.size()) << "the test's own tensor";
    std::copy(values.begin(), values.end(), mat.ptr<float>());
    return mat;
}

void expectOne(const std::vector<Detection>& found, const Detection& expected) {
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NEAR(found[0].left, expected.left, 1e-5F);
    EXPECT_NEAR(found[0].top, expected.top, 1e-5F);
    EXPECT_NEAR(found[0].right, expected.right, 1e-5F);
    EXPECT_NEAR(found[0].bottom, expected.bottom, 1e-5F);
    EXPECT_EQ(found[0].objectClass, expected.objectClass);
    EXPECT_NEAR(found[0].score, expected.score, 1e-5F);
}

const OutputLayout& layoutNamed(const std::string& name) {
    for (const OutputLayout* const layout : outputLayouts()) {
        if (layout->name() == name) {
            return *layout;
        }
    }
    throw std::runtime_error("no layout " + name);
}

std::string refusal(const std::string& layout, const std::vector<cv::Mat>& outputs, cv::Size input, int highestClass) {
    try {
        checkOutputs(layoutNamed(layout), outputs, input, highestClass);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "(accepted)";
}

TEST(DecodeYoloDarknet, TakesTheClassScoreAsItIs) {
    const cv::Mat output = tensor({2, 7}, {0.5F, 0.4F, 0.2F, 0.6F, 0.9F, 0.1F, 0.8F,  //
                                           0.5F, 0.5F, 0.1F, 0.1F, 0.9F, 0.3F, 0.2F});
    EXPECT_EQ(refusal("yolo-darknet", {output}, {320, 320}, 1), "(accepted)");
    // 0.5 -+ 0.2/2, 0.4 -+ 0.6/2; the second row's best score 0.3 is below 0.5
    expectOne(decodeOutputs(layoutNamed("yolo-darknet"), {output}, {320, 320}, kClasses, 0.5F),
              {0.4F, 0.1F, 0.6F, 0.7F, ObjectClass::Car, 0.8F});
}

TEST(DecodeYoloDarknet, DropsClassesThatAreNotMapped) {
    const cv::Mat output = tensor({1, 7}, {0.5F, 0.4F, 0.2F, 0.6F, 0.9F, 0.1F, 0.8F});
    EXPECT_TRUE(
        decodeOutputs(layoutNamed("yolo-darknet"), {output}, {320, 320}, {{0, ObjectClass::Person}}, 0.5F).empty());
}

TEST(DecodeYolov5, MultipliesObjectnessAndClassAndScalesPixels) {
    // eight candidates of 5+2 values, all but the second of no objectness
    std::vector<float> values(56);
    const std::vector<float> candidate = {320, 160, 64, 32, 0.5F, 0.8F, 0.1F};
    std::copy(candidate.begin(), candidate.end(), values.begin() + 7);
    const cv::Mat output = tensor({1, 8, 7}, values);
    EXPECT_EQ(refusal("yolov5", {output}, {640, 320}, 1), "(accepted)");
    // centre 320/640, 160/320; half sizes 32/640 = 0.05, 16/320 = 0.05; score 0.5 * 0.8
    expectOne(decodeOutputs(layoutNamed("yolov5"), {output}, {640, 320}, kClasses, 0.3F),
              {0.45F, 0.45F, 0.55F, 0.55F, ObjectClass::Person, 0.4F});
}

TEST(DecodeYolov8, ReadsCandidatesAcrossTheTensor) {
    // 4+2 rows of seven candidates; the third is wanted
    std::vector<float> values(42);
    const std::vector<float> candidate = {100, 50, 20, 40, 0.2F, 0.7F};
    for (size_t row = 0; row < candidate.size(); ++row) {
        values[row * 7 + 2] = candidate[row];
    }
    const cv::Mat output = tensor({1, 6, 7}, values);
    EXPECT_EQ(refusal("yolov8", {output}, {200, 100}, 1), "(accepted)");
    // (100 -+ 10)/200, (50 -+ 20)/100
    expectOne(decodeOutputs(layoutNamed("yolov8"), {output}, {200, 100}, kClasses, 0.5F),
              {0.45F, 0.3F, 0.55F, 0.7F, ObjectClass::Car, 0.7F});
}

TEST(DecodeYolox, PlacesCandidatesInTheirCells) {
    // an input of 64x32 has 8x4 cells of stride 8, 4x2 of 16 and 2x1 of 32: 42 in all
    std::vector<float> values(294);  // of 7 values each
    // cell 32 + 1*4 + 3 = 39, value 273: the second row and fourth column of stride 16
    const std::vector<float> candidate = {0.5F, 0.25F, std::log(0.5F), 0, 0.5F, 0.2F, 0.9F};
    std::copy(candidate.begin(), candidate.end(), values.begin() + 273);
    const cv::Mat output = tensor({1, 42, 7}, values);
    EXPECT_EQ(refusal("yolox", {output}, {64, 32}, 1), "(accepted)");
    // centre x (3 + 0.5) * 16 = 56, y (1 + 0.25) * 16 = 20; width 0.5 * 16 = 8, height 1 * 16 = 16; score 0.5 * 0.9
    expectOne(decodeOutputs(layoutNamed("yolox"), {output}, {64, 32}, kClasses, 0.3F),
              {52.0F / 64, 12.0F / 32, 60.0F / 64, 28.0F / 32, ObjectClass::Car, 0.45F});
}

TEST(DecodeSsd, ReadsCornersAndItsOwnClassNumbers) {
    const cv::Mat output = tensor({1, 1, 2, 7}, {0, 1, 0.9F, 0.1F, 0.2F, 0.3F, 0.4F,  //
                                                 0, 2, 0.1F, 0, 0, 1, 1});
    EXPECT_EQ(refusal("ssd", {output}, {300, 300}, 90), "(accepted)");
    expectOne(decodeOutputs(layoutNamed("ssd"), {output}, {300, 300}, {{1, ObjectClass::Person}}, 0.5F),
              {0.1F, 0.2F, 0.3F, 0.4F, ObjectClass::Person, 0.9F});
}

TEST(DecodeFastestDet, CombinesObjectnessAndClassPerCell) {
    // 5+2 planes of 1x2 cells; the second cell has everything, all other values are 0
    std::vector<float> values(14);
    values[1] = 1;                 // objectness: 1^0.6 = 1
    values[2 * 6 + 1] = 0.00032F;  // class 1: the fifth root of 0.00032 is 0.2, its square 0.04
    const cv::Mat output = tensor({1, 7, 1, 2}, values);
    EXPECT_EQ(refusal("fastestdet", {output}, {32, 16}, 1), "(accepted)");
    // cx = (1 + tanh 0) / 2 = 0.5, cy = 0, w = h = sigmoid 0 = 0.5
    expectOne(decodeOutputs(layoutNamed("fastestdet"), {output}, {32, 16}, kClasses, 0.03F),
              {0.25F, -0.25F, 0.75F, 0.25F, ObjectClass::Car, 0.04F});
}

TEST(CheckOutputs, NamesTheExpectedShapeAndTheOneThatCame) {
    const cv::Mat flat = cv::Mat::zeros(10, 85, CV_32F);
    const std::vector<int> wideShape = {1, 84, 8400};
    const cv::Mat wide(3, wideShape.data(), CV_32F, cv::Scalar(0));
    EXPECT_EQ(refusal("yolov5", {flat}, {640, 640}, 8),
              "\"decoder\": yolov5 expected 1 output 1xNx(5+classes), the network gave 1 output 10x85");
    EXPECT_EQ(refusal("yolov5", {wide}, {640, 640}, 8),
              "\"decoder\": yolov5 expected 1 output 1xNx(5+classes), the network gave 1 output 1x84x8400");
    EXPECT_EQ(refusal("yolov8", {flat, flat}, {640, 640}, 8),
              "\"decoder\": yolov8 expected 1 output 1x(4+classes)xN, the network gave 2 outputs 10x85 10x85");
    EXPECT_EQ(refusal("yolox", {wide}, {64, 32}, 8),
              "\"decoder\": yolox expected 1 output 1xCELLSx(5+classes) with 42 cells, the network gave 1 output "
              "1x84x8400");
    EXPECT_EQ(refusal("yolo-darknet", {wide}, {320, 320}, 8),
              "\"decoder\": yolo-darknet expected outputs Nx(5+classes), the network gave 1 output 1x84x8400");
    EXPECT_EQ(refusal("ssd", {flat}, {300, 300}, 8),
              "\"decoder\": ssd expected 1 output 1x1xNx7, the network gave 1 output 10x85");
    EXPECT_EQ(refusal("fastestdet", {flat}, {352, 352}, 8),
              "\"decoder\": fastestdet expected 1 output 1x(5+classes)xHxW, the network gave 1 output 10x85");
}

TEST(CheckOutputs, RefusesClassesThatTheNetworkDoesNotHave) {
    const cv::Mat output = cv::Mat::zeros(10, 85, CV_32F);
    EXPECT_EQ(refusal("yolo-darknet", {output}, {320, 320}, 79), "(accepted)");
    EXPECT_EQ(refusal("yolo-darknet", {output}, {320, 320}, 80),
              "\"classes\": expected indices below 80, the number of the network's classes, got 80");
}

}  // namespace
}  // namespace desktop
