#include "desktop/video/scene/scene.h"

/**
 * What happens on the plaza, as data. A pass lasts a minute, begins with an empty place, so that a detector can learn
 * it, and ends with an empty one, so that passes join without a jump.
 *
 * The rows are laid out so that no two figures come within 60 pixels of each other: vehicles follow one another on the
 * road (feet and wheels at 200 and 256), people use two lanes of the place (feet at 480 and 712). Every line is crossed
 * at a right angle, and whoever goes through the door goes 200 pixels deep before leaving the picture.
 */
namespace desktop {
namespace {

constexpr int kWidth = 1280;
constexpr int kPersonOutLeft = -50;
constexpr int kPersonOutRight = kWidth + 50;

constexpr double kBackLane = 400.0;   // centres of people 160 pixels tall
constexpr double kFrontLane = 627.0;  // centres of people 170 pixels tall
constexpr double kFarCars = 148.0;
constexpr double kNearCars = 201.0;
constexpr double kNearBus = 165.0;
constexpr double kFarBicycle = 127.0;
constexpr double kNearBicycle = 181.0;

SceneFigure backPerson(Colour coat, Colour trousers, std::vector<Keyframe> path) {
    return {FigureKind::Person, 66, 160, coat, trousers, std::move(path)};
}

SceneFigure frontPerson(Colour coat, Colour trousers, std::vector<Keyframe> path) {
    return {FigureKind::Person, 70, 170, coat, trousers, std::move(path)};
}

SceneFigure nearCar(Colour body, double start) {
    return {FigureKind::Car, 270, 110, body, 0xd8dde0, {{start, -140, kNearCars}, {start + 5.2, 1420, kNearCars}}};
}

SceneFigure farCar(Colour body, double start) {
    return {FigureKind::Car, 252, 104, body, 0xd8dde0, {{start, 1410, kFarCars}, {start + 5.2, -130, kFarCars}}};
}

Scene makePlaza() {
    Scene scene = {
        .name = "plaza",
        .width = kWidth,
        .height = 720,
        .frameRate = 15,
        .seconds = 60,
        .door = {0.80, 0.42, 1.00, 1.00},
        .crossing = {0.42, 0.05, 0.58, 0.38},
        .seats = {0.28, 0.42, 0.55, 0.72},
        .figures = {},
    };
    scene.figures = {
        // Back lane, past the seats: two stay there and then go in, one comes out and one goes in without a rest.
        backPerson(0xb3372f, 0x2b3550,
                   {{2.0, kPersonOutLeft, kBackLane},
                    {6.2, 530, kBackLane},
                    {13.2, 530, kBackLane},
                    {18.9, kPersonOutRight, kBackLane}}),
        backPerson(0x2f6f4f, 0x3a2f2a, {{22.0, kPersonOutRight, kBackLane}, {31.9, kPersonOutLeft, kBackLane}}),
        backPerson(0x2c4f94, 0x26282e,
                   {{34.5, kPersonOutLeft, kBackLane},
                    {38.4, 500, kBackLane},
                    {45.0, 500, kBackLane},
                    {50.9, kPersonOutRight, kBackLane}}),
        backPerson(0x8a2f6a, 0x33384a, {{48.5, kPersonOutLeft, kBackLane}, {58.4, kPersonOutRight, kBackLane}}),

        // Front lane: two go in, two come out, one of whom looks about for a while before going on.
        frontPerson(0x274b6d, 0x5a4632, {{8.0, kPersonOutLeft, kFrontLane}, {17.9, kPersonOutRight, kFrontLane}}),
        frontPerson(0xa8551f, 0x2f3640,
                    {{21.0, kPersonOutRight, kFrontLane},
                     {25.5, 700, kFrontLane},
                     {28.0, 700, kFrontLane},
                     {33.4, kPersonOutLeft, kFrontLane}}),
        frontPerson(0x55307a, 0x22304a, {{36.0, kPersonOutLeft, kFrontLane}, {45.9, kPersonOutRight, kFrontLane}}),
        frontPerson(0x1f6a6a, 0x40342c, {{49.0, kPersonOutRight, kFrontLane}, {58.9, kPersonOutLeft, kFrontLane}}),

        // The road, one vehicle after another.
        nearCar(0xdc453c, 3.0),
        farCar(0x4f8fdc, 9.5),
        {FigureKind::Bicycle, 150, 150, 0xd0661f, 0x24303c, {{16.0, -80, kNearBicycle}, {23.2, 1360, kNearBicycle}}},
        {FigureKind::Bus, 550, 182, 0x3fa765, 0xf2e6c4, {{24.5, -285, kNearBus}, {31.5, 1565, kNearBus}}},
        farCar(0xe8e4da, 33.0),
        {FigureKind::Bicycle, 146, 146, 0x2a5fa8, 0x3c2a24, {{39.5, 1360, kFarBicycle}, {46.7, -80, kFarBicycle}}},
        nearCar(0xe0b020, 48.0),
        nearCar(0x4fb8ac, 54.0),
    };
    return scene;
}

}  // namespace

const Scene& plaza() {
    // Never destroyed: at the end of the process a source's thread may still be drawing it.
    static const Scene* const scene = new Scene(makePlaza());
    return *scene;
}

}  // namespace desktop
