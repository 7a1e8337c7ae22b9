#include "desktop/parameters/parameter_store.h"

#include <atomic>
#include <csignal>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <thread>

#include "desktop/parameters/good_copy.h"
#include "desktop/parameters/lost_settings.h"
#include "program.h"
#include "test_folder.h"

namespace {

std::atomic<int> g_patience = 0;

}  // namespace

/** What the store asks of the library, which a test of seconds' waiting need not wait for. */
extern "C" int sqlite3_busy_timeout(sqlite3* database, int milliseconds) {
    using Call = int (*)(sqlite3*, int);
    static const auto real = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "sqlite3_busy_timeout"));
    g_patience = std::max<int>(g_patience, milliseconds);
    return real(database, milliseconds);
}

namespace {

using desktop::ParameterDefault;
using desktop::ParameterStore;
using Names = std::vector<std::string>;

class ParameterFile : public testing::Test {
protected:
    TestFolder m_folder;
    std::string m_path = m_folder.path() / "parameters.db";
};

/** What a call throws. */
template <typename Call>
std::string errorOf(Call call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing";
}

TEST_F(ParameterFile, ASetWaitsForWhoeverHoldsTheFile) {
    g_patience = 0;
    ParameterStore store(m_path, {{"A", "1"}});
    EXPECT_GE(g_patience, 10'000) << "milliseconds";
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(m_path.c_str(), &other), SQLITE_OK);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> owned(other, sqlite3_close);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    std::string error;
    std::thread setter([&] { error = errorOf([&] { store.set("A", "2"); }); });
    std::this_thread::yield();
    EXPECT_EQ(sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
    setter.join();
    EXPECT_EQ(error, "nothing");
    EXPECT_EQ(store.get("A"), "2");
}

TEST_F(ParameterFile, DefaultsAreSeededOnce) {
    {
        ParameterStore store(m_path, {{"A", "1"}, {"B", "2"}});
        EXPECT_EQ(store.get("A"), "1");
        store.set("A", "5");
    }
    ParameterStore store(m_path, {{"A", "7"}, {"B", "8"}, {"C", "9"}});
    EXPECT_EQ(store.get("A"), "5") << "was set";
    EXPECT_EQ(store.get("B"), "2") << "was seeded before";
    EXPECT_EQ(store.get("C"), "9") << "is new";
}

TEST_F(ParameterFile, AddingKeepsWhatIsThere) {
    ParameterStore store(m_path, {{"A", "1"}});
    EXPECT_FALSE(store.add("A", "0"));
    EXPECT_TRUE(store.add("B", "0"));
    EXPECT_FALSE(store.add("B", "7"));
    EXPECT_EQ(store.get("A"), "1");
    EXPECT_EQ(store.get("B"), "0");
    EXPECT_EQ(store.names(), (Names{"A", "B"}));
}

TEST_F(ParameterFile, AnUnknownNameHasNoValueAndTakesNone) {
    ParameterStore store(m_path, {});
    EXPECT_EQ(store.get("A"), std::nullopt);
    EXPECT_EQ(errorOf([&] { store.set("A", "1"); }), "no parameter A");
    EXPECT_EQ(store.get("A"), std::nullopt);
}

TEST_F(ParameterFile, TextsAreKeptAsTheyAre) {
    const std::string odd = "'; DROP TABLE parameter; --\n\xC3\xA4 \"";
    ParameterStore store(m_path, {{"A", ""}});
    EXPECT_EQ(store.get("A"), "");
    store.set("A", odd);
    EXPECT_EQ(store.get("A"), odd);
}

TEST_F(ParameterFile, ASetSurvivesTheKillOfItsProcess) {
    int done[2] = {-1, -1};
    ASSERT_EQ(pipe(done), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        ParameterStore store(m_path, {{"A", "1"}, {"B", "1"}});
        store.set("A", "2");
        store.add("C", "3");
        [[maybe_unused]] const ssize_t written = write(done[1], "x", 1);
        for (;;) {
            pause();
        }
    }
    Child child(pid);
    char byte = 0;
    ASSERT_EQ(read(done[0], &byte, 1), 1);
    kill(child.pid(), SIGKILL);
    ASSERT_EQ(child.wait(10000), 128 + SIGKILL);
    ParameterStore store(m_path, {});
    EXPECT_EQ(store.get("A"), "2");
    EXPECT_EQ(store.get("B"), "1");
    EXPECT_EQ(store.get("C"), "3");
    close(done[0]);
    close(done[1]);
}

TEST_F(ParameterFile, ReadersSeeEveryValueWholeAndInOrderWhileOneWrites) {
    constexpr int kValues = 300;
    ParameterStore store(m_path, {{"A", "0"}});
    ParameterStore besides(m_path, {});  // as another process has it
    std::atomic<bool> writing = true;
    const auto readAll = [&writing](ParameterStore& from) {
        int last = 0;
        while (writing) {
            const int value = std::stoi(from.get("A").value());
            EXPECT_GE(value, last);
            last = value;
        }
    };
    std::thread first([&] { readAll(store); });
    std::thread second([&] { readAll(store); });
    std::thread third([&] { readAll(besides); });
    for (int value = 1; value <= kValues; ++value) {
        store.set("A", std::to_string(value));
    }
    writing = false;
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(besides.get("A"), std::to_string(kValues));
}

TEST_F(ParameterFile, AFullDiskIsAnErrorOfTheCallAndLosesNothing) {
    ParameterStore store(m_path, {{"A", "1"}});
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handlerBefore = signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {65536, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string error = errorOf([&] { store.set("A", std::string(200000, 'x')); });
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handlerBefore);
    EXPECT_EQ(error.rfind(m_path + ": ", 0), 0U) << error;
    EXPECT_EQ(store.get("A"), "1");
    store.set("A", "2");
    EXPECT_EQ(store.get("A"), "2") << "with room again, it goes on";
}

TEST_F(ParameterFile, ThatCannotBeOpenedIsNamed) {
    std::filesystem::create_directory(m_path);
    EXPECT_EQ(errorOf([&] { const ParameterStore store(m_path, {}); }), m_path + ": unable to open database file");
    const std::string missing = m_folder.path() / "missing/parameters.db";
    EXPECT_EQ(errorOf([&] { const ParameterStore store(missing, {}); }), missing + ": unable to open database file");
}

TEST_F(ParameterFile, ThatIsNoDatabaseIsNamed) {
    writeFile(m_path, std::string(5000, 'x'));
    EXPECT_EQ(errorOf([&] { const ParameterStore store(m_path, {}); }), m_path + ": file is not a database");
}

TEST_F(ParameterFile, ThatIsDamagedIsNamedAndSetAsideAndTheLastGoodOneIsUsed) {
    for (const size_t from : {size_t{0}, size_t{4096}, size_t{24576}}) {
        {
            ParameterStore store(m_path, {{"A", "1"}, {"B", std::string(20000, 'b')}});
            store.set("A", "kept " + std::to_string(from));
        }
        EXPECT_EQ(desktop::restoreDamaged(m_path), "") << "a whole file";
        std::string bytes = readFile(m_path);
        ASSERT_GE(bytes.size(), from + 4096);
        bytes.replace(from, 4096, std::string(4096, 'x'));
        writeFile(m_path, bytes);
        const std::string told = desktop::restoreDamaged(m_path);
        EXPECT_EQ(told.rfind(m_path + " is damaged (", 0), 0U) << told;
        EXPECT_TRUE(
            told.ends_with("); it is kept as " + m_path + ".damaged, and the settings are those of the last good copy"))
            << told;
        EXPECT_EQ(readFile(m_path + ".damaged"), bytes);
        EXPECT_FALSE(desktop::isLossRemembered(m_path));
        ParameterStore store(m_path, {});
        EXPECT_EQ(store.get("A"), "kept " + std::to_string(from));
        EXPECT_EQ(store.get("B"), std::string(20000, 'b'));
    }
}

TEST_F(ParameterFile, ThatWasEmptiedIsDamaged) {
    for (const bool hasTable : {false, true}) {
        { ParameterStore(m_path, {{"A", "1"}}).set("A", "kept"); }
        std::filesystem::resize_file(m_path, 0);
        if (hasTable) {
            // Another one's, such as of a file that was copied over this.
            sqlite3* other = nullptr;
            ASSERT_EQ(sqlite3_open(m_path.c_str(), &other), SQLITE_OK);
            sqlite3_exec(other, "CREATE TABLE somebody (name TEXT)", nullptr, nullptr, nullptr);
            sqlite3_close(other);
        }
        EXPECT_EQ(desktop::restoreDamaged(m_path), m_path + " is damaged (it is empty); it is kept as " + m_path +
                                                       ".damaged, and the settings are those of the last good copy");
        EXPECT_EQ(ParameterStore(m_path, {{"A", "1"}}).get("A"), "kept");
    }
}

TEST_F(ParameterFile, ThatIsDamagedWithoutAGoodCopyBeginsAnew) {
    writeFile(m_path, std::string(5000, 'x'));
    writeFile(m_path + ".good", std::string(5000, 'y'));
    EXPECT_EQ(desktop::restoreDamaged(m_path),
              m_path + " is damaged (file is not a database); it is kept as " + m_path +
                  ".damaged, and the settings begin anew, since there is no good copy");
    EXPECT_EQ(readFile(m_path + ".damaged"), std::string(5000, 'x'));
    EXPECT_TRUE(desktop::isLossRemembered(m_path));
    ParameterStore store(m_path, {{"A", "1"}});
    EXPECT_EQ(store.get("A"), "1");
}

// --- Package manifests -----------------------------------------------------------------------------------------------

TEST_F(ParameterFile, AManifestsDefaultsKeepTheirOrder) {
    const std::string path = m_folder.path() / "manifest.json";
    writeFile(path,
              R"({"parameters": [{"name": "Z", "default": "1", "type": "integer"}, {"name": "A", "default": ""}]})");
    const std::vector<ParameterDefault> defaults = desktop::readManifestDefaults(path);
    ASSERT_EQ(defaults.size(), 2U);
    EXPECT_EQ(defaults[0].name, "Z");
    EXPECT_EQ(defaults[0].value, "1");
    EXPECT_EQ(defaults[1].name, "A");
    EXPECT_EQ(defaults[1].value, "");
}

struct ManifestCase {
    const char* label;
    const char* text;
    const char* error;
};

class BadManifest : public ParameterFile, public testing::WithParamInterface<ManifestCase> {};

TEST_P(BadManifest, IsNamedWithWhatWasExpected) {
    const std::string path = m_folder.path() / "manifest.json";
    writeFile(path, GetParam().text);
    EXPECT_EQ(errorOf([&] { desktop::readManifestDefaults(path); }), path + GetParam().error) << GetParam().label;
}

constexpr const char* kNoList = ": expected a JSON object with a list \"parameters\"";

INSTANTIATE_TEST_SUITE_P(
    Table, BadManifest,
    testing::Values(ManifestCase{"empty", "", kNoList}, ManifestCase{"no JSON", "parameters", kNoList},
                    ManifestCase{"a list", "[]", kNoList}, ManifestCase{"no parameters", "{}", kNoList},
                    ManifestCase{"parameters of another kind", R"({"parameters": {}})", kNoList},
                    ManifestCase{"no default", R"({"parameters": [{"name":"A"}]})",
                                 ": expected texts \"name\" and \"default\" in a parameter, got {\"name\":\"A\"}"},
                    ManifestCase{"no name", R"({"parameters": [{"default":"1"}]})",
                                 ": expected texts \"name\" and \"default\" in a parameter, got {\"default\":\"1\"}"},
                    ManifestCase{"a number as default", R"({"parameters": [{"default":1,"name":"A"}]})",
                                 ": expected texts \"name\" and \"default\" in a parameter, got "
                                 "{\"default\":1,\"name\":\"A\"}"},
                    ManifestCase{"no object", R"({"parameters": [7]})",
                                 ": expected texts \"name\" and \"default\" in a parameter, got 7"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(ParameterFile, AManifestMayNameTheAnonymisedStream) {
    const std::string path = m_folder.path() / "manifest.json";
    writeFile(path, R"({"anonymised_stream": {"on": "A", "resolution": "B"}})");
    const auto names = desktop::readAnonymisedStream(path);
    ASSERT_TRUE(names);
    EXPECT_EQ(names->on, "A");
    EXPECT_EQ(names->resolution, "B");
    EXPECT_EQ(names->rivalOn, "");
    writeFile(path,
              R"({"anonymised_stream": {"on": "A", "resolution": "B", "yields_to": {"on": "C", "resolution": "D"}}})");
    EXPECT_EQ(desktop::readAnonymisedStream(path)->rivalOn, "C");
    EXPECT_EQ(desktop::readAnonymisedStream(path)->rivalResolution, "D");
    writeFile(path, "{}");
    EXPECT_FALSE(desktop::readAnonymisedStream(path));
    for (const char* stream : {R"({"on":"A"})", R"({"on":"A","resolution":7})", "7", "[]"}) {
        writeFile(path, std::string(R"({"anonymised_stream": )") + stream + "}");
        EXPECT_EQ(errorOf([&] { desktop::readAnonymisedStream(path); }),
                  path + ": expected texts \"on\" and \"resolution\" in \"anonymised_stream\", got " + stream);
    }
}

TEST_F(ParameterFile, AManifestMayNameTheParametersOfClasses) {
    const std::string path = m_folder.path() / "manifest.json";
    writeFile(path, R"({"class_parameters": {"Car": "A", "Person": "B"}})");
    EXPECT_EQ(desktop::readClassParameters(path), (std::map<std::string, std::string>{{"Car", "A"}, {"Person", "B"}}));
    writeFile(path, "{}");
    EXPECT_TRUE(desktop::readClassParameters(path).empty());
    writeFile(path, R"({"class_parameters": {"Car": 7}})");
    EXPECT_EQ(errorOf([&] { desktop::readClassParameters(path); }),
              path + ": expected names of parameters in \"class_parameters\", got {\"Car\":7}");
}

TEST_F(ParameterFile, AMissingManifestIsNamed) {
    EXPECT_EQ(errorOf([] { desktop::readManifestDefaults("/missing/manifest.json"); }),
              "cannot read the package manifest /missing/manifest.json");
}

}  // namespace
