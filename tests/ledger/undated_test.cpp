#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "inquiry/recount.h"
#include "inquiry/stays.h"
#include "inquiry/why.h"
#include "wandering.h"

/* What is asked of a camera that did not know the time at first. */

namespace inquiry {
namespace {

constexpr int64_t kDay = int64_t{24} * 60 * 60 * 1000;

/** A camera of yesterday, started again today; it knows the time at once, or a little later, or is killed before. */
class StartedAgain {
public:
    explicit StartedAgain(bool knowsTime) {
        camera.run(500);
        camera.stop();
        camera.setClock(kBegin + kDay);
        camera.startMachine("b1", knowsTime);
        camera.begin();
        camera.run(700);
        camera.begin();  // killed
        camera.run(700);
        learnedAt = camera.time();
    }

    /** All that can be asked; without the lines' numbers, since minutes of an unknown time begin elsewhere. */
    nlohmann::ordered_json answers(const Span& span) {
        const SettingsFor settings = settingsInForce(oldSettings(), kPicture);
        nlohmann::ordered_json why = whyOf(chunksOf(camera.disk, span), settings, span, 0);
        for (auto& crossing : why["crossings"]) {
            crossing.erase("seq");
        }
        return {{"recount", jsonOf(camera.recount(oldSettings(), span))},
                {"stays", jsonOf(staysOf(chunksOf(camera.disk, span), span))},
                {"heat", jsonOf(heatOf(chunksOf(camera.disk, span), span, "UTC"))},
                {"why", std::move(why)}};
    }

    Wandering camera{12};
    int64_t learnedAt = 0;
};

TEST(LinesWithoutATime, AreAskedLikeOthersOnceItIsKnown) {
    StartedAgain knowing(true);
    StartedAgain learning(false);
    for (StartedAgain* const each : {&knowing, &learning}) {
        each->camera.learnTime();
        each->camera.run(700);
        each->camera.stop();
    }
    const struct {
        const char* label;
        Span span;
    } cases[] = {
        {"since the machine's start", {kBegin + kDay, knowing.camera.time() + 1}},
        {"before the clock was known", {kBegin + kDay, knowing.learnedAt - 10'000}},
        {"around that", {knowing.learnedAt - 30'000, knowing.learnedAt + 30'000}},
        {"yesterday", {kBegin, kBegin + kDay}},
    };
    for (const auto& [label, span] : cases) {
        const auto expected = knowing.answers(span);
        const auto told = learning.answers(span);
        for (const auto& [question, answer] : expected.items()) {
            EXPECT_TRUE(told[question] == answer) << question << " " << label;
        }
        EXPECT_FALSE(expected["why"]["crossings"].empty()) << "a test of something: " << label;
        EXPECT_FALSE(expected["stays"].empty()) << "a test of something: " << label;
        EXPECT_FALSE(expected["heat"]["cells"].empty()) << "a test of something: " << label;
    }
}

TEST(LinesWithoutATime, AreInNoTimeWhereItNeverBecameKnown) {
    StartedAgain learning(false);
    const Counts all = learning.camera.counted;
    const Span day = {kBegin + kDay, kBegin + 2 * kDay};
    const nlohmann::ordered_json nothing = learning.answers(day);
    const auto nothingAtAll = nlohmann::ordered_json::array();
    EXPECT_EQ(nothing["recount"]["recorded"], nothingAtAll);
    EXPECT_EQ(nothing["stays"], nothingAtAll);
    EXPECT_EQ(nothing["heat"]["cells"], nothingAtAll);
    EXPECT_EQ(nothing["why"]["crossings"], nothingAtAll);
    EXPECT_EQ(learning.camera.recount(oldSettings()).recorded, all) << "whoever asks for all gets all";

    // The machine was started again, and the new start's time says nothing of the one before.
    learning.camera.startMachine("b2", false);
    learning.camera.begin();
    learning.camera.counted.clear();
    const int64_t from = learning.camera.time();
    learning.camera.run(700);
    learning.camera.learnTime();
    learning.camera.run(700);
    learning.camera.stop();
    const Recounted late = learning.camera.recount(oldSettings(), day);
    EXPECT_EQ(late.recorded, learning.camera.counted);
    EXPECT_EQ(late.counts, learning.camera.counted);
    EXPECT_TRUE(learning.answers(day) == learning.answers({from, kBegin + 2 * kDay}));
}

}  // namespace
}  // namespace inquiry
