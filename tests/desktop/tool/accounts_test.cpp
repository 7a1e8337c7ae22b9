#include "desktop/webserver/accounts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "program.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;

std::string errorOf(const desktop::Accounts& accounts) {
    try {
        accounts.set("operator", "password of operators");
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing";
}

TEST(Accounts, AreThoseOfAFileOfTheirOwnAlone) {
    const struct {
        const char* label;
        void (*plant)(const fs::path& place, const fs::path& secret);
    } cases[] = {
        {"a link", [](const fs::path& place, const fs::path& secret) { fs::create_symlink(secret, place); }},
        {"a pipe", [](const fs::path& place, const fs::path&) { ASSERT_EQ(mkfifo(place.c_str(), 0600), 0); }},
        {"a folder", [](const fs::path& place, const fs::path&) { fs::create_directory(place); }},
    };
    for (const auto& [label, plant] : cases) {
        const TestFolder folder;
        const fs::path file = folder.path() / "accounts";
        writeFile(folder.path() / "secret", "somebody else's\n");
        plant(file, folder.path() / "secret");
        EXPECT_EQ(errorOf(desktop::Accounts(file)).find("cannot read " + file.string() + ": "), 0U) << label;
        EXPECT_FALSE(fs::is_regular_file(fs::symlink_status(file))) << label;
        EXPECT_THROW(desktop::Accounts(file).has("operator"), std::runtime_error) << label;
    }
}

TEST(Accounts, OfSomebodyElseAreRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give folders away";
    }
    const TestFolder folder;
    ASSERT_EQ(chown(folder.path().c_str(), 65534, 65534), 0);
    const fs::path file = folder.path() / "accounts";
    writeFile(folder.path() / "secret", "root's\n");
    fs::create_hard_link(folder.path() / "secret", file);
    EXPECT_EQ(errorOf(desktop::Accounts(file)),
              "cannot read " + file.string() + ": expected a file of its folder's owner");
    EXPECT_EQ(readFile(file), "root's\n");
}

TEST(Accounts, AreAllKeptWhenManyAreSetAtOnce) {
    const TestFolder folder;
    const desktop::Accounts accounts(folder.path() / "accounts");
    accounts.set("operator", "password of operators");
    constexpr int kUsers = 40;
    std::vector<pid_t> children;
    for (int i = 0; i < kUsers; ++i) {
        children.push_back(fork());
        if (children.back() == 0) {
            try {
                accounts.set("user" + std::to_string(i), "password of users", desktop::Role::Viewer);
            } catch (const std::runtime_error&) {
                _exit(1);
            }
            _exit(0);
        }
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    for (int i = 0; i < kUsers; ++i) {
        EXPECT_TRUE(accounts.has("user" + std::to_string(i))) << i;
    }
}

}  // namespace
