#include "detection/mmfile.h"

#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "log_capture.h"

namespace {

int g_spaceError = 0;

}  // namespace

/** Stands before the system's call. */
extern "C" int posix_fallocate(int file, off_t offset, off_t size) {
    if (g_spaceError != 0) {
        return g_spaceError;
    }
    // Where offsets are wider than the processor's words it has another name.
    constexpr const char* kName = sizeof(off_t) > sizeof(long) ? "posix_fallocate64" : "posix_fallocate";
    using Call = int (*)(int, off_t, off_t);
    static const auto real = reinterpret_cast<Call>(dlsym(RTLD_NEXT, kName));
    return real(file, offset, size);
}

namespace {

using Lines = std::vector<std::string>;

class TensorFile : public testing::Test {
protected:
    std::string nameTemplate() const { return m_log.folder() / "tmp/tensor-XXXXXX"; }

    /** What construction throws. */
    static std::string thrownBy(const std::string& name, int size) {
        try {
            const MemoryMappedFile file(name, size);
        } catch (const char* reason) {
            return reason;
        }
        return "nothing";
    }

    LogCapture m_log;
};

TEST_F(TensorFile, HasNoNameButStaysValid) {
    MemoryMappedFile file(nameTemplate(), 100);
    EXPECT_TRUE(std::filesystem::is_empty(m_log.folder() / "tmp"));
    file.getBuffer()[99] = 7;
    uint8_t byte = 0;
    EXPECT_EQ(pread(file.getFileDescriptor(), &byte, 1, 99), 1);
    EXPECT_EQ(byte, 7) << "written through the mapping, read through the descriptor";
    EXPECT_EQ(lseek(file.getFileDescriptor(), 0, SEEK_END), 100);
}

TEST_F(TensorFile, ShowsWhatIsWrittenBeyondItsSize) {
    const MemoryMappedFile file(nameTemplate(), 100);
    std::array<float, 100> values = {};
    values.back() = 1.5F;
    ASSERT_EQ(write(file.getFileDescriptor(), values.data(), sizeof(values)), 400);
    EXPECT_EQ(reinterpret_cast<const float*>(file.getBuffer())[99], 1.5F);
}

TEST_F(TensorFile, HasItsSpaceFromTheStart) {
    constexpr int kSize = 3 * 960 * 540;
    const MemoryMappedFile file(nameTemplate(), kSize);
    struct stat status = {};
    ASSERT_EQ(fstat(file.getFileDescriptor(), &status), 0);
    EXPECT_GE(status.st_blocks * 512, kSize);
}

TEST_F(TensorFile, ThatFindsNoSpaceIsRefused) {
    g_spaceError = ENOSPC;
    EXPECT_EQ(thrownBy(nameTemplate(), 100), "Failed to adjust file size");
    g_spaceError = 0;
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].rfind(
                  "MemoryMappedFile: Failed to adjust temporary file " + (m_log.folder() / "tmp/tensor-").string(), 0),
              0U)
        << errors[0];
    EXPECT_TRUE(errors[0].ends_with(" to size 100 : No space left on device")) << errors[0];
    EXPECT_TRUE(std::filesystem::is_empty(m_log.folder() / "tmp")) << "nothing is left behind";
}

TEST_F(TensorFile, OfTheSameTemplateIsAnother) {
    const MemoryMappedFile first(nameTemplate(), 10);
    const MemoryMappedFile second(nameTemplate(), 10);
    first.getBuffer()[0] = 1;
    EXPECT_EQ(second.getBuffer()[0], 0);
    EXPECT_NE(first.getFileDescriptor(), second.getFileDescriptor());
}

TEST_F(TensorFile, RewindsItsOffset) {
    MemoryMappedFile file(nameTemplate(), 10);
    lseek(file.getFileDescriptor(), 5, SEEK_SET);
    EXPECT_TRUE(file.rewind());
    EXPECT_EQ(lseek(file.getFileDescriptor(), 0, SEEK_CUR), 0);
}

TEST_F(TensorFile, WithoutADescriptorCannotRewind) {
    MemoryMappedFile file(nameTemplate(), 10);
    close(file.getFileDescriptor());
    EXPECT_FALSE(file.rewind());
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].rfind(
                  "MemoryMappedFile: Failed to rewind mapped file " + (m_log.folder() / "tmp/tensor-").string(), 0),
              0U)
        << errors[0];
    EXPECT_TRUE(errors[0].ends_with(" : Bad file descriptor")) << errors[0];
}

TEST_F(TensorFile, IsClosedWithItsOwner) {
    int descriptor = -1;
    {
        const MemoryMappedFile file(nameTemplate(), 10);
        descriptor = file.getFileDescriptor();
        EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
    }
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(TensorFile, NeedsAFolder) {
    EXPECT_EQ(thrownBy(m_log.folder() / "missing/tensor-XXXXXX", 10), "Failed to create temporary file");
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(
        errors[0].rfind(
            "MemoryMappedFile: Failed to create temporary file: " + (m_log.folder() / "missing/tensor-").string(), 0),
        0U)
        << errors[0];
    EXPECT_TRUE(errors[0].ends_with(" : No such file or directory")) << errors[0];
}

struct SizeCase {
    const char* label;
    int size;
    const char* thrown;
    const char* before;
    const char* after;
};

class TensorFileSize : public TensorFile, public testing::WithParamInterface<SizeCase> {};

TEST_P(TensorFileSize, ThatCannotBeIsRefused) {
    EXPECT_EQ(thrownBy(nameTemplate(), GetParam().size), GetParam().thrown) << GetParam().label;
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 1U) << GetParam().label;
    EXPECT_EQ(errors[0].rfind(
                  "MemoryMappedFile: " + std::string(GetParam().before) + (m_log.folder() / "tmp/tensor-").string(), 0),
              0U)
        << errors[0];
    EXPECT_TRUE(errors[0].ends_with(GetParam().after)) << errors[0];
    EXPECT_TRUE(std::filesystem::is_empty(m_log.folder() / "tmp")) << GetParam().label << ": nothing stays behind";
}

INSTANTIATE_TEST_SUITE_P(Table, TensorFileSize,
                         testing::Values(SizeCase{"negative", -1, "Failed to adjust file size",
                                                  "Failed to adjust temporary file ", " to size -1 : Invalid argument"},
                                         SizeCase{"none", 0, "Failed to create map file", "Failed to create map file ",
                                                  " : Invalid argument"}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

}  // namespace
