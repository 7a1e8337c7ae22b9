#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "app/application.h"
#include "base/clock.h"
#include "base/line_file.h"
#include "program.h"
#include "test_clock.h"
#include "test_folder.h"

/*
 * What differs between processors of 32 and 64 bits: the machine's words for times, file sizes and memory. The
 * archives' dates and binary records are tested where they are, beyond 2038.
 */

namespace {

TEST(WordSize, TimesGoBeyond2038) {
    const TimeZone utc("UTC0");
    EXPECT_EQ(localTime(4102444800).tm_year, 200);
    EXPECT_EQ(localTime(32503679999).tm_year, 1099);
    const TestClock clock(4102444800);
    EXPECT_EQ(clockNow(), 4102444800);
}

/** A file as large as this takes no room on the disk before it is written to. */
class LargeFile : public testing::Test {
protected:
    static constexpr uintmax_t kSize = (uintmax_t{1} << 32U) + 1000;  // beyond both 31 and 32 bits

    LargeFile() {
        writeFile(m_path, "first\n");
        std::filesystem::resize_file(m_path, kSize);
    }

    std::string tail(std::streamsize bytes) const {
        std::ifstream file(m_path, std::ios::binary);
        file.seekg(-bytes, std::ios::end);
        std::string text(static_cast<size_t>(bytes), '\0');
        file.read(text.data(), bytes);
        return text;
    }

    TestFolder m_folder;
    const std::string m_path = m_folder.path() / "large.csv";
};

TEST_F(LargeFile, IsAppendedTo) {
    EXPECT_TRUE(appendText(m_path, "\nwhole line\n"));
    EXPECT_EQ(std::filesystem::file_size(m_path), kSize + 12);
    EXPECT_EQ(tail(12), "\nwhole line\n");
}

TEST_F(LargeFile, LosesItsTornLastLineAndNoMore) {
    ASSERT_TRUE(appendText(m_path, "\nwhole line\ntorn"));
    const Mending mending = mendLines(m_path, [](const std::string&) { return false; });
    EXPECT_EQ(mending.error, 0);
    EXPECT_EQ(mending.dropped, "torn");
    EXPECT_EQ(std::filesystem::file_size(m_path), kSize + 12);
    EXPECT_EQ(tail(12), "\nwhole line\n");
}

TEST(WordSize, MemoryFiguresAreThoseOf32Bits) {
    EXPECT_EQ(Application::toKilobytes(536870912, 1), 524288U);    // a camera of 512 MB
    EXPECT_EQ(Application::toKilobytes(4294967295, 1), 4194303U);  // the most that bytes can tell
    EXPECT_EQ(Application::toKilobytes(1048575, 4096), 4194300U);  // the same in pages
    EXPECT_EQ(Application::toKilobytes(1048577, 4096), 4U);        // beyond, the figure starts anew
    EXPECT_EQ(Application::toKilobytes(3221225472, 1), 3145728U);  // beyond 31 bits it does not turn negative
}

}  // namespace
