#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include <axsdk/axevent.h>

#include "desktop/config/desktop_config.h"
#include "desktop/events/event_file.h"
#include "file_size_limit.h"
#include "program.h"
#include "test_folder.h"

namespace {

constexpr const char* kSpace = "tnsaxis";

template <auto release>
struct Release {
    template <typename Handle>
    void operator()(Handle* handle) const {
        release(handle);
    }
};
using Handler = std::unique_ptr<AXEventHandler, Release<ax_event_handler_free>>;
using Set = std::unique_ptr<AXEventKeyValueSet, Release<ax_event_key_value_set_free>>;
using Event = std::unique_ptr<AXEvent, Release<ax_event_free>>;

class EventCalls : public testing::Test {
protected:
    EventCalls() {
        desktop::DesktopConfig config;
        config.stateFolder = m_folder.path();
        config.nowMicros = [] { return int64_t{1704067201234567}; };  // 1 January 2024, 00:00:01.234567
        desktop::setDesktopConfig(config);
    }
    ~EventCalls() override {
        g_clear_error(&m_error);
        desktop::setDesktopConfig({});
    }

    GError** slot() {
        g_clear_error(&m_error);
        return &m_error;
    }
    std::string words() const { return m_error == nullptr ? "none" : m_error->message; }

    bool add(const Set& set, const char* key, const char* space, const void* value, AXEventValueType type) {
        return ax_event_key_value_set_add_key_value(set.get(), key, space, value, type, slot()) != FALSE;
    }

    /** Topics "Platform/Application/Alert" and the data key "active". */
    Set alert() {
        Set set(ax_event_key_value_set_new());
        const gboolean active = FALSE;
        EXPECT_TRUE(ax_event_key_value_set_add_key_values(
            set.get(), slot(), "topic0", kSpace, "Platform", AX_VALUE_TYPE_STRING, "topic1", kSpace, "Application",
            AX_VALUE_TYPE_STRING, "topic2", kSpace, "Alert", AX_VALUE_TYPE_STRING, "active", nullptr, &active,
            AX_VALUE_TYPE_BOOL, nullptr));
        EXPECT_TRUE(ax_event_key_value_set_mark_as_data(set.get(), "active", nullptr, slot()));
        return set;
    }

    guint declare(const Set& set) {
        guint id = 0;
        EXPECT_TRUE(ax_event_handler_declare(m_handler.get(), set.get(), FALSE, &id, nullptr, nullptr, slot()))
            << words();
        return id;
    }

    bool send(guint declaration, const Set& set) {
        const Event event(ax_event_new2(set.get(), nullptr));
        return ax_event_handler_send_event(m_handler.get(), declaration, event.get(), slot()) != FALSE;
    }

    Set active(bool value) {
        Set set(ax_event_key_value_set_new());
        const gboolean flag = value ? TRUE : FALSE;
        EXPECT_TRUE(add(set, "active", nullptr, &flag, AX_VALUE_TYPE_BOOL));
        return set;
    }

    std::string lines() const { return readFile(m_folder.path() / "events.jsonl"); }

    TestFolder m_folder;
    Handler m_handler{ax_event_handler_new()};
    GError* m_error = nullptr;
};

TEST_F(EventCalls, EachEventIsALine) {
    const guint id = declare(alert());
    EXPECT_TRUE(send(id, active(true)));
    EXPECT_TRUE(send(id, active(false)));
    EXPECT_EQ(lines(),
              "{\"time\":\"2024-01-01T00:00:01.234Z\",\"topic\":\"Platform/Application/Alert\",\"active\":true}\n"
              "{\"time\":\"2024-01-01T00:00:01.234Z\",\"topic\":\"Platform/Application/Alert\",\"active\":false}\n");
}

TEST_F(EventCalls, AnEventMayBringItsOwnTime) {
    const guint id = declare(alert());
    const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> moment(
        g_date_time_new_utc(2030, 12, 31, 23, 59, 58.5), g_date_time_unref);
    const Event event(ax_event_new2(active(true).get(), moment.get()));
    EXPECT_TRUE(ax_event_handler_send_event(m_handler.get(), id, event.get(), slot()));
    EXPECT_EQ(lines().rfind("{\"time\":\"2030-12-31T23:59:58.500Z\"", 0), 0U) << lines();
}

TEST_F(EventCalls, EveryTypeHasItsForm) {
    Set declaration(ax_event_key_value_set_new());
    EXPECT_TRUE(add(declaration, "topic0", kSpace, "Data", AX_VALUE_TYPE_STRING));
    Set data(ax_event_key_value_set_new());
    const gint number = -7;
    const gdouble real = 0.5;
    struct Key {
        const char* name;
        const void* value;
        AXEventValueType type;
    };
    const std::unique_ptr<AXEventElementItem, Release<ax_event_element_item_free>> root(
        ax_event_element_item_new("root", nullptr, slot()));
    AXEventElementItem* const child = ax_event_element_item_new("child", nullptr, slot());
    EXPECT_TRUE(ax_event_element_item_set_body(child, "text", slot()));
    EXPECT_TRUE(ax_event_element_item_add_child(root.get(), child, slot()));
    for (const Key& key :
         {Key{"int", &number, AX_VALUE_TYPE_INT}, Key{"real", &real, AX_VALUE_TYPE_DOUBLE},
          Key{"text", "a \"b\"\n", AX_VALUE_TYPE_STRING}, Key{"tree", root.get(), AX_VALUE_TYPE_ELEMENT}}) {
        EXPECT_TRUE(add(declaration, key.name, nullptr, nullptr, key.type));
        EXPECT_TRUE(ax_event_key_value_set_mark_as_data(declaration.get(), key.name, nullptr, slot()));
        EXPECT_TRUE(add(data, key.name, nullptr, key.value, key.type));
    }
    EXPECT_TRUE(send(declare(declaration), data)) << words();
    EXPECT_EQ(lines(),
              "{\"time\":\"2024-01-01T00:00:01.234Z\",\"topic\":\"Data\",\"int\":-7,\"real\":0.5,\"text\":\"a "
              "\\\"b\\\"\\n\",\"tree\":{\"name\":\"root\",\"children\":[{\"name\":\"child\",\"body\":\"text\"}"
              "]}}\n");
}

TEST_F(EventCalls, DeclarationsAreNumberedAndCalledBack) {
    guint told = 0;
    const Set set = alert();
    guint first = 0;
    EXPECT_TRUE(ax_event_handler_declare(
        m_handler.get(), set.get(), TRUE, &first, [](guint id, gpointer user) { *static_cast<guint*>(user) = id; },
        &told, slot()));
    EXPECT_NE(first, 0U);
    EXPECT_EQ(told, first);
    EXPECT_NE(declare(set), first);
}

TEST_F(EventCalls, ADeclarationWithoutTopicsIsRefused) {
    const Set empty(ax_event_key_value_set_new());
    guint id = 0;
    EXPECT_FALSE(ax_event_handler_declare(m_handler.get(), empty.get(), FALSE, &id, nullptr, nullptr, slot()));
    EXPECT_EQ(words(), "expected a topic key tnsaxis:topic0, got none");
    const Set second(ax_event_key_value_set_new());
    EXPECT_TRUE(add(second, "topic1", kSpace, "Application", AX_VALUE_TYPE_STRING));
    EXPECT_FALSE(ax_event_handler_declare(m_handler.get(), second.get(), FALSE, &id, nullptr, nullptr, slot()));
    EXPECT_EQ(words(), "expected the topic key tnsaxis:topic0, got tnsaxis:topic1");
    const Set number(ax_event_key_value_set_new());
    const gint value = 3;
    EXPECT_TRUE(add(number, "topic0", kSpace, &value, AX_VALUE_TYPE_INT));
    EXPECT_FALSE(ax_event_handler_declare(m_handler.get(), number.get(), FALSE, &id, nullptr, nullptr, slot()));
    EXPECT_EQ(words(), "expected a string value for tnsaxis:topic0");
    EXPECT_EQ(id, 0U);
}

TEST_F(EventCalls, AnEventIsHeldToItsDeclaration) {
    const guint id = declare(alert());
    Set text(ax_event_key_value_set_new());
    EXPECT_TRUE(add(text, "active", nullptr, "true", AX_VALUE_TYPE_STRING));
    EXPECT_FALSE(send(id, text));
    EXPECT_EQ(words(), "expected type bool for active, got string");
    Set more = active(true);
    EXPECT_TRUE(add(more, "colour", nullptr, "red", AX_VALUE_TYPE_STRING));
    EXPECT_FALSE(send(id, more));
    EXPECT_EQ(words(), "the declaration has no data key colour");
    Set topic = active(true);
    EXPECT_TRUE(add(topic, "topic2", kSpace, "Alert", AX_VALUE_TYPE_STRING));
    EXPECT_FALSE(send(id, topic));
    EXPECT_EQ(words(), "the declaration has no data key tnsaxis:topic2") << "a topic is no data";
    const Set nothing(ax_event_key_value_set_new());
    EXPECT_FALSE(send(id, nothing));
    EXPECT_EQ(words(), "the event lacks the data key active");
    EXPECT_EQ(lines(), "");
}

TEST_F(EventCalls, AnUndeclaredEventIsRefused) {
    EXPECT_FALSE(send(5, active(true)));
    EXPECT_EQ(words(), "no declaration 5");
    const guint id = declare(alert());
    EXPECT_TRUE(ax_event_handler_undeclare(m_handler.get(), id, slot()));
    EXPECT_FALSE(send(id, active(true)));
    EXPECT_EQ(words(), "no declaration " + std::to_string(id));
    EXPECT_FALSE(ax_event_handler_undeclare(m_handler.get(), id, slot()));
    EXPECT_EQ(words(), "no declaration " + std::to_string(id));
}

TEST_F(EventCalls, KeysThatAreNotThereAreRefused) {
    const Set set(ax_event_key_value_set_new());
    EXPECT_FALSE(ax_event_key_value_set_mark_as_data(set.get(), "active", nullptr, slot()));
    EXPECT_EQ(words(), "the set has no key active");
    EXPECT_FALSE(ax_event_key_value_set_add_nice_names(set.get(), "topic2", kSpace, "a", "b", slot()));
    EXPECT_EQ(words(), "the set has no key tnsaxis:topic2");
    EXPECT_FALSE(add(set, "", nullptr, "x", AX_VALUE_TYPE_STRING));
    EXPECT_EQ(words(), "expected a key, got an empty name");
    EXPECT_EQ(ax_event_element_item_new("", nullptr, slot()), nullptr);
    EXPECT_EQ(words(), "expected an element name, got an empty one");
}

TEST_F(EventCalls, AFullDiskIsAnErrorOfTheCall) {
    const std::string path = m_folder.path() / "events.jsonl";
    std::filesystem::create_symlink("/dev/full", path);
    EXPECT_FALSE(send(declare(alert()), active(true)));
    EXPECT_EQ(words(), path + ": No space left on device");
}

TEST_F(EventCalls, AnEventThatADiskHasNoRoomForLeavesNoPart) {
    const guint id = declare(alert());
    EXPECT_TRUE(send(id, active(true)));
    const std::string first = lines();
    {
        const FileSizeLimit full(first.size() + 7);
        EXPECT_FALSE(send(id, active(false)));
        EXPECT_EQ(words(), (m_folder.path() / "events.jsonl").string() + ": File too large");
        EXPECT_EQ(lines(), first);
    }
    EXPECT_TRUE(send(id, active(true)));
    EXPECT_EQ(lines(), first + first) << "the next one has a line of its own";
}

TEST_F(EventCalls, ALineThatAKillToreCostsOnlyItself) {
    const guint id = declare(alert());
    EXPECT_TRUE(send(id, active(true)));
    const std::string line = lines();
    const std::string torn = line.substr(0, line.size() / 2);
    writeFile(m_folder.path() / "events.jsonl", line + torn);
    EXPECT_TRUE(send(id, active(true)));
    EXPECT_EQ(lines(), line + torn + "\n" + line);
}

/** What tells the generations of a file apart: the first letter, '-' for a missing file. */
std::string generations(const std::filesystem::path& newest) {
    std::string letters;
    for (int age = 0; age <= 10; ++age) {
        std::ifstream file(newest.string() + (age == 0 ? "" : "." + std::to_string(age)));
        const int letter = file.get();
        letters += file ? static_cast<char>(letter) : '-';
    }
    return letters;
}

struct GenerationsCase {
    const char* label;
    const char* before;
    const char* after;
};

TEST_F(EventCalls, TenFilesOfTenMebibytesAreKept) {
    constexpr size_t kFull = size_t{10} * 1024 * 1024;
    const std::filesystem::path newest = m_folder.path() / "events.jsonl";
    const guint id = declare(alert());
    for (const GenerationsCase& entry : {GenerationsCase{"the first is full", "a----------", "{a---------"},
                                         GenerationsCase{"a second", "ab---------", "{ab--------"},
                                         GenerationsCase{"the oldest goes", "abcdefghij-", "{abcdefghi-"},
                                         GenerationsCase{"a kill left a gap", "abc-efghij-", "{abcefghij-"},
                                         GenerationsCase{"a kill left no newest file", "-bcdefghij-", "{bcdefghij-"}}) {
        for (int age = 0; age <= 10; ++age) {
            const std::string path = newest.string() + (age == 0 ? "" : "." + std::to_string(age));
            std::filesystem::remove(path);
            if (const char letter = entry.before[age]; letter != '-') {
                writeFile(path, std::string(1, letter));
                std::filesystem::resize_file(path, kFull);
            }
        }
        EXPECT_TRUE(send(id, active(true))) << entry.label << ": " << words();
        EXPECT_EQ(generations(newest), entry.after) << entry.label;
        EXPECT_TRUE(lines().starts_with("{") && lines().ends_with("true}\n") && lines().size() < 100) << entry.label;
    }
}

TEST_F(EventCalls, AFileHasRoomForTenMebibytes) {
    const guint id = declare(alert());
    EXPECT_TRUE(send(id, active(true)));
    const std::string line = lines();
    const std::filesystem::path newest = m_folder.path() / "events.jsonl";
    writeFile(newest, std::string(10 * 1024 * 1024 - line.size() - 1, 'x') + "\n");
    EXPECT_TRUE(send(id, active(true)));
    EXPECT_EQ(std::filesystem::file_size(newest), 10U * 1024 * 1024) << "to the last byte";
    EXPECT_FALSE(std::filesystem::exists(newest.string() + ".1"));
    EXPECT_TRUE(send(id, active(true)));
    EXPECT_EQ(lines(), line);
    ASSERT_TRUE(std::filesystem::exists(newest.string() + ".1"));
    EXPECT_EQ(std::filesystem::file_size(newest.string() + ".1"), 10U * 1024 * 1024);
    EXPECT_EQ(desktop::eventFiles(newest), (std::vector<std::string>{newest.string() + ".1", newest.string()}));
}

TEST_F(EventCalls, AFileThatCannotBeRenamedGoesOn) {
    const std::filesystem::path newest = m_folder.path() / "events.jsonl";
    const guint id = declare(alert());
    for (int age = 1; age < 10; ++age) {
        std::filesystem::create_directories(newest.string() + "." + std::to_string(age) + "/in the way");
    }
    writeFile(newest, std::string(10 * 1024 * 1024, 'x') + "\n");
    EXPECT_TRUE(send(id, active(true)));
    EXPECT_GT(std::filesystem::file_size(newest), 10U * 1024 * 1024);
    EXPECT_TRUE(lines().ends_with("true}\n"));
}

TEST_F(EventCalls, AMissingFolderIsAnErrorOfTheCall) {
    desktop::DesktopConfig config;
    config.stateFolder = m_folder.path() / "missing";
    desktop::setDesktopConfig(config);
    EXPECT_FALSE(send(declare(alert()), active(true)));
    EXPECT_EQ(words(), config.stateFolder + "/events.jsonl: No such file or directory");
}

TEST_F(EventCalls, LinesOfSeveralThreadsDoNotMix) {
    constexpr int kEach = 200;
    const guint id = declare(alert());
    const auto sendMany = [&](bool value) {
        const Set set(ax_event_key_value_set_new());
        const gboolean flag = value ? TRUE : FALSE;
        ax_event_key_value_set_add_key_value(set.get(), "active", nullptr, &flag, AX_VALUE_TYPE_BOOL, nullptr);
        for (int i = 0; i < kEach; ++i) {
            const Event event(ax_event_new2(set.get(), nullptr));
            EXPECT_TRUE(ax_event_handler_send_event(m_handler.get(), id, event.get(), nullptr));
        }
    };
    std::thread first(sendMany, true);
    std::thread second(sendMany, false);
    first.join();
    second.join();
    std::ifstream file(m_folder.path() / "events.jsonl");
    int on = 0;
    int off = 0;
    for (std::string line; std::getline(file, line);) {
        on += line.ends_with("\"active\":true}") ? 1 : 0;
        off += line.ends_with("\"active\":false}") ? 1 : 0;
    }
    EXPECT_EQ(on, kEach);
    EXPECT_EQ(off, kEach);
}

}  // namespace
