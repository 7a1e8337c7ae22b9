#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include <axsdk/axparameter.h>

#include "desktop/config/desktop_config.h"
#include "desktop/parameters/parameter_watch.h"
#include "program.h"
#include "test_folder.h"

namespace {

using Names = std::vector<std::string>;

struct FreeHandle {
    void operator()(AXParameter* handle) const { ax_parameter_free(handle); }
};

/** An error of a call and its words. */
class Error {
public:
    ~Error() { g_clear_error(&m_error); }
    GError** slot() {
        g_clear_error(&m_error);
        return &m_error;
    }
    int code() const { return m_error == nullptr ? -1 : m_error->code; }
    std::string words() const { return m_error == nullptr ? "none" : m_error->message; }

private:
    GError* m_error = nullptr;
};

class ParameterCalls : public testing::Test {
protected:
    ParameterCalls() {
        writeFile(m_manifest, R"({"parameters": [{"name": "B", "default": "two"}, {"name": "A", "default": "one"}]})");
        configure(m_manifest);
        m_store.reset(ax_parameter_new("ostrel_senvo", m_error.slot()));
    }
    ~ParameterCalls() override {
        m_store.reset();
        desktop::setDesktopConfig({});
    }

    void configure(const std::string& manifest) const {
        desktop::DesktopConfig config;
        config.stateFolder = m_folder.path();
        config.manifest = manifest;
        desktop::setDesktopConfig(config);
    }

    std::string get(const char* name) {
        gchar* value = nullptr;
        if (ax_parameter_get(m_store.get(), name, &value, m_error.slot()) == FALSE) {
            return "no value";
        }
        const std::unique_ptr<gchar, decltype(&g_free)> owner(value, g_free);
        return value;
    }

    TestFolder m_folder;
    std::string m_manifest = m_folder.path() / "manifest.json";
    Error m_error;
    std::unique_ptr<AXParameter, FreeHandle> m_store;
};

TEST_F(ParameterCalls, ReadTheManifestsDefaultsAndThePlatformsOwn) {
    ASSERT_NE(m_store, nullptr) << m_error.words();
    EXPECT_EQ(get("A"), "one");
    EXPECT_EQ(get("B"), "two");
    EXPECT_EQ(get("root.Image.I0.Appearance.Rotation"), "0");
    EXPECT_EQ(get("root.Image.I0.Appearance.Mirrored"), "0");
    EXPECT_EQ(get("root.ImageSource.I0.Sensor.AspectRatio"), "16:9");
    EXPECT_EQ(get("C"), "no value");
    EXPECT_EQ(m_error.code(), AX_PARAMETER_PARAM_GET_ERROR);
    EXPECT_EQ(m_error.words(), "no parameter C");
}

TEST_F(ParameterCalls, AddOnlyWhatIsMissing) {
    EXPECT_TRUE(ax_parameter_add(m_store.get(), "C", "0", nullptr, m_error.slot()));
    EXPECT_EQ(get("C"), "0");
    EXPECT_FALSE(ax_parameter_add(m_store.get(), "A", "0", nullptr, m_error.slot()));
    EXPECT_EQ(m_error.code(), AX_PARAMETER_PARAM_ADDED_ERROR);
    EXPECT_EQ(m_error.words(), "A is there already");
    EXPECT_EQ(get("A"), "one");
}

TEST_F(ParameterCalls, SetWhatIsThere) {
    EXPECT_TRUE(ax_parameter_set(m_store.get(), "A", "new", TRUE, m_error.slot()));
    EXPECT_EQ(get("A"), "new");
    EXPECT_FALSE(ax_parameter_set(m_store.get(), "C", "new", TRUE, m_error.slot()));
    EXPECT_EQ(m_error.code(), AX_PARAMETER_PARAM_SET_ERROR);
    EXPECT_EQ(m_error.words(), "no parameter C");
}

TEST_F(ParameterCalls, ListTheApplicationsNamesInOrder) {
    GList* const list = ax_parameter_list(m_store.get(), m_error.slot());
    Names names;
    for (const GList* entry = list; entry != nullptr; entry = entry->next) {
        names.emplace_back(static_cast<const char*>(entry->data));
    }
    g_list_free_full(list, g_free);
    EXPECT_EQ(names, (Names{"A", "B"})) << "without the platform's own";
}

struct Arrival {
    std::string name;
    std::string value;
    std::thread::id thread;
};

void arrive(const gchar* name, const gchar* value, gpointer arrivals) {
    static_cast<std::vector<Arrival>*>(arrivals)->push_back({name, value, std::this_thread::get_id()});
}

void iterateMainContext() {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
}

TEST_F(ParameterCalls, CallBackOnTheMainContext) {
    std::vector<Arrival> arrivals;
    ASSERT_TRUE(ax_parameter_register_callback(m_store.get(), "A", arrive, &arrivals, m_error.slot()));
    std::thread setter([this] {
        GError* error = nullptr;
        EXPECT_TRUE(ax_parameter_set(m_store.get(), "A", "new", TRUE, &error));
        EXPECT_TRUE(ax_parameter_set(m_store.get(), "B", "unwatched", TRUE, &error));
    });
    setter.join();
    EXPECT_TRUE(arrivals.empty()) << "not on the setter's thread";
    iterateMainContext();
    ASSERT_EQ(arrivals.size(), 1U);
    EXPECT_EQ(arrivals[0].name, "A");
    EXPECT_EQ(arrivals[0].value, "new");
    EXPECT_EQ(arrivals[0].thread, std::this_thread::get_id());
}

TEST_F(ParameterCalls, DoNotCallBackForASetThatFailed) {
    std::vector<Arrival> arrivals;
    EXPECT_FALSE(ax_parameter_register_callback(m_store.get(), "C", arrive, &arrivals, m_error.slot()));
    EXPECT_EQ(m_error.code(), AX_PARAMETER_CALLBACK_ERROR);
    EXPECT_EQ(m_error.words(), "no parameter C");
    EXPECT_FALSE(ax_parameter_set(m_store.get(), "C", "new", TRUE, m_error.slot()));
    iterateMainContext();
    EXPECT_TRUE(arrivals.empty());
}

TEST_F(ParameterCalls, TellAWatcherBeforeTheyReturn) {
    Names told;
    desktop::watchParameters([&](const std::string& name, const std::optional<std::string>& value) {
        EXPECT_TRUE(!value || get(name.c_str()) == *value) << "set by then";
        told.push_back(name + (value ? "=" + *value : " failed"));
        return true;
    });
    told.clear();
    EXPECT_TRUE(ax_parameter_set(m_store.get(), "A", "new", TRUE, m_error.slot()));
    EXPECT_EQ(told, Names({"A=new"}));
    desktop::watchParameters({});
    EXPECT_TRUE(ax_parameter_set(m_store.get(), "A", "newer", TRUE, m_error.slot()));
    EXPECT_EQ(told.size(), 1U);
}

TEST_F(ParameterCalls, TellAWatcherWhatFailedAlsoBeforeIt) {
    Names told;
    const auto watcher = [&](const std::string& name, const std::optional<std::string>& value) {
        told.push_back(name + (value ? "=" + *value : " failed"));
        return true;
    };
    gchar* value = nullptr;
    EXPECT_FALSE(ax_parameter_get(m_store.get(), "D", &value, m_error.slot()));
    desktop::watchParameters(watcher);
    EXPECT_EQ(told, Names({"parameters.db failed"})) << "before";
    EXPECT_FALSE(ax_parameter_set(m_store.get(), "C", "new", TRUE, m_error.slot()));
    EXPECT_FALSE(ax_parameter_get(m_store.get(), "E", &value, m_error.slot()));
    EXPECT_EQ(told, Names({"parameters.db failed", "C failed", "E failed"}));
    EXPECT_FALSE(ax_parameter_add(m_store.get(), "A", "1", nullptr, m_error.slot()));
    EXPECT_EQ(told.size(), 3U) << "one that is there already is no failure";
    desktop::watchParameters({});
}

TEST_F(ParameterCalls, RememberWhatFailedForTheNextStartUntilAllIsKnown) {
    const auto isToldOfALoss = [] {
        bool lost = false;
        desktop::watchParameters([&](const std::string&, const std::optional<std::string>& value) {
            lost = !value;
            return false;
        });
        desktop::watchParameters({});
        return lost;
    };
    const auto know = [this](bool all) {
        desktop::watchParameters([all](const std::string&, const std::optional<std::string>&) { return all; });
        EXPECT_TRUE(ax_parameter_set(m_store.get(), "A", "new", TRUE, m_error.slot()));
    };
    know(true);
    EXPECT_FALSE(isToldOfALoss());
    const pid_t pid = fork();
    if (pid == 0) {
        configure("/missing/manifest.json");
        ax_parameter_new("ostrel_senvo", nullptr);
        _exit(0);
    }
    Child child(pid);
    ASSERT_EQ(child.wait(60000), 0);
    EXPECT_TRUE(isToldOfALoss()) << "of another process";
    know(false);
    EXPECT_TRUE(std::filesystem::exists(m_folder.path() / "parameters.db.lost"));
    know(true);
    EXPECT_FALSE(std::filesystem::exists(m_folder.path() / "parameters.db.lost"));
    EXPECT_FALSE(isToldOfALoss());
}

TEST_F(ParameterCalls, RefuseABadManifest) {
    m_store.reset();
    configure("/missing/manifest.json");
    m_store.reset(ax_parameter_new("ostrel_senvo", m_error.slot()));
    EXPECT_EQ(m_store, nullptr);
    EXPECT_EQ(m_error.words(), "cannot read the package manifest /missing/manifest.json");
}

TEST_F(ParameterCalls, TakeNoErrorSlot) {
    EXPECT_FALSE(ax_parameter_set(m_store.get(), "C", "new", TRUE, nullptr));
    gchar* value = nullptr;
    EXPECT_FALSE(ax_parameter_get(m_store.get(), "C", &value, nullptr));
    EXPECT_EQ(value, nullptr);
}

}  // namespace
