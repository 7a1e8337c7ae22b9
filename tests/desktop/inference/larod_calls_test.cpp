#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <larod.h>

#include "desktop/config/desktop_config.h"
#include "desktop/frames/last_fetched.h"
#include "desktop/parameters/parameter_store.h"
#include "desktop/parameters/parameter_watch.h"
#include "program.h"
#include "test_folder.h"

namespace {

/** An open temporary file of a given content. */
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content) : m_file(std::tmpfile(), &std::fclose) {
        EXPECT_NE(m_file, nullptr);
        EXPECT_EQ(pwrite(fd(), content.data(), content.size(), 0), static_cast<ssize_t>(content.size()));
    }
    [[nodiscard]] int fd() const { return fileno(m_file.get()); }
    void resize(size_t bytes) { EXPECT_EQ(ftruncate(fd(), static_cast<off_t>(bytes)), 0); }

    [[nodiscard]] std::vector<float> floats() const {
        struct stat status = {};
        EXPECT_EQ(fstat(fd(), &status), 0);
        std::vector<float> values(static_cast<size_t>(status.st_size) / sizeof(float));
        EXPECT_EQ(pread(fd(), values.data(), static_cast<size_t>(status.st_size), 0), status.st_size);
        return values;
    }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> m_file;
};

constexpr const char* kMotionCard = R"({"engine":"motion","tensor":{"width":96,"height":64}})";
constexpr const char* kPlainCard = R"({"engine":"motion","steady":false,"tensor":{"width":96,"height":64}})";
constexpr size_t kPictureBytes = 18432;  // 3 * 96 * 64

/** A grey picture of 96x64; somebody stands in it from (32, 16) to (48, 48). */
std::string picture(bool somebody) {
    std::string pixels(kPictureBytes, '\x80');
    for (size_t y = 16; somebody && y < 48; ++y) {
        pixels.replace((y * 96 + 32) * 3, size_t{16} * 3, size_t{16} * 3, '\x10');
    }
    return pixels;
}

class LarodCalls : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(larodConnect(&m_connection, nullptr));
        m_device = larodGetDevice(m_connection, "google-edge-tpu-tflite", 0, nullptr);
        ASSERT_NE(m_device, nullptr);
    }

    void TearDown() override {
        larodDestroyJobRequest(&m_request);
        larodDestroyTensors(m_connection, &m_inputs, m_inputCount, nullptr);
        larodDestroyTensors(m_connection, &m_outputs, m_outputCount, nullptr);
        larodDestroyModel(&m_model);
        larodDisconnect(&m_connection, nullptr);
        larodClearError(&m_error);
    }

    void load(const std::string& card) {
        const TemporaryFile file(card);
        m_model =
            larodLoadModel(m_connection, file.fd(), m_device, LAROD_ACCESS_PRIVATE, "test card", nullptr, &m_error);
    }

    void makeTensors(const char* card = kMotionCard) {
        load(card);
        ASSERT_NE(m_model, nullptr);
        m_inputs = larodCreateModelInputs(m_model, &m_inputCount, nullptr);
        m_outputs = larodCreateModelOutputs(m_model, &m_outputCount, nullptr);
        ASSERT_EQ(m_inputCount, 1U);
        ASSERT_EQ(m_outputCount, 4U);
    }

    void bindAll() {
        ASSERT_TRUE(larodSetTensorFd(m_inputs[0], m_input.fd(), nullptr));
        for (size_t i = 0; i < 4; ++i) {
            ASSERT_TRUE(larodSetTensorFd(m_outputs[i], m_results[i].fd(), nullptr));
        }
    }

    void prepareJob(const char* card = kMotionCard) {
        makeTensors(card);
        bindAll();
        m_input.resize(kPictureBytes);
        m_request = larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 4, nullptr, nullptr);
        ASSERT_NE(m_request, nullptr);
    }

    /** Runs a job on a frame of 960x640 that came then. */
    void look(const std::string& pixels, int64_t micros) {
        ASSERT_EQ(pwrite(m_input.fd(), pixels.data(), pixels.size(), 0), static_cast<ssize_t>(pixels.size()));
        desktop::noteFetched({.picture = {}, .width = 960, .height = 640, .micros = micros});
        for (const TemporaryFile& result : m_results) {
            ASSERT_EQ(lseek(result.fd(), 0, SEEK_SET), 0);
        }
        ASSERT_TRUE(larodRunJob(m_connection, m_request, &m_error)) << m_error->msg;
    }

    void expectError(larodErrorCode code, const std::string& message) {
        ASSERT_NE(m_error, nullptr);
        EXPECT_EQ(m_error->code, code);
        EXPECT_EQ(m_error->msg, message);
    }

    larodConnection* m_connection = nullptr;
    const larodDevice* m_device = nullptr;
    larodModel* m_model = nullptr;
    larodTensor** m_inputs = nullptr;
    larodTensor** m_outputs = nullptr;
    size_t m_inputCount = 0;
    size_t m_outputCount = 0;
    larodJobRequest* m_request = nullptr;
    larodError* m_error = nullptr;
    TemporaryFile m_input{""};
    std::array<TemporaryFile, 4> m_results{TemporaryFile(""), TemporaryFile(""), TemporaryFile(""), TemporaryFile("")};
};

TEST_F(LarodCalls, AJobWritesTheFourTensorsWhole) {
    prepareJob();
    ASSERT_TRUE(larodRunJob(m_connection, m_request, &m_error));
    const std::array<size_t, 4> sizes = {400, 100, 100, 1};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(m_results[i].floats(), std::vector<float>(sizes[i]))
            << "output " << i << " of an empty first picture";
    }
}

TEST_F(LarodCalls, AJobNotesForTheLivePictureWhoIsNotConfirmedYet) {
    prepareJob(kPlainCard);
    for (int i = 0; i < 20; ++i) {
        look(picture(false), i);
        ASSERT_TRUE(desktop::lastFetched().found);
        EXPECT_TRUE(desktop::lastFetched().found->empty());
    }
    look(picture(true), 20);
    EXPECT_EQ(m_results[3].floats(), std::vector<float>{0}) << "the application is told of nobody yet";
    ASSERT_EQ(desktop::lastFetched().found->size(), 1U);
    const desktop::FoundBox box = desktop::lastFetched().found->front();
    EXPECT_NEAR(box.left, 32.0F / 96, 0.03F);
    EXPECT_NEAR(box.top, 16.0F / 64, 0.03F);
    EXPECT_NEAR(box.right, 48.0F / 96, 0.03F);
    EXPECT_NEAR(box.bottom, 48.0F / 64, 0.03F);
}

TEST_F(LarodCalls, AJobThatAnswersForAnOlderFrameKeepsWhatWasFoundOnThatFrame) {
    prepareJob();
    for (int i = 0; i < 20; ++i) {
        look(picture(false), i * 1000000);
    }
    look(picture(true), 20000000);
    const desktop::FoundBoxes found = desktop::lastFetched().found;
    EXPECT_EQ(desktop::lastFetched().micros, 20000000) << "nothing older within half a second";
    EXPECT_EQ(found->size(), 1U);
    look(picture(false), 20400000);
    EXPECT_EQ(desktop::lastFetched().micros, 20000000);
    EXPECT_EQ(desktop::lastFetched().found, found);
}

TEST_F(LarodCalls, JobsNeitherWriteNorWaitForTheSettings) {
    const TestFolder folder;
    const std::string path = folder.path() / "parameters.db";
    writeFile(folder.path() / "manifest.json",
              R"({"parameters": [], "inference": {"sensitivity": "S"}, "class_parameters": {"Person": "P"}})");
    desktop::DesktopConfig config;
    config.stateFolder = folder.path();
    config.manifest = folder.path() / "manifest.json";
    desktop::setDesktopConfig(config);
    desktop::ParameterStore store(path, {{"S", "0.3"}, {"P", "true"}});
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &other), SQLITE_OK);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> owned(other, sqlite3_close);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK) << "nobody else may write";
    std::vector<std::string> told;
    desktop::watchParameters([&](const std::string& name, const std::optional<std::string>&) {
        told.push_back(name);
        return true;
    });
    told.clear();
    prepareJob();
    for (int i = 0; i < 11; ++i) {
        look(picture(false), i);
    }
    desktop::watchParameters({});
    desktop::setDesktopConfig({});
    EXPECT_EQ(told, std::vector<std::string>()) << "no setting was lost";
    EXPECT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
}

TEST_F(LarodCalls, OutputsAreWrittenFromTheDescriptorsOffsetOn) {
    prepareJob();
    ASSERT_EQ(lseek(m_results[3].fd(), 8, SEEK_SET), 8);
    ASSERT_TRUE(larodRunJob(m_connection, m_request, &m_error));
    EXPECT_EQ(m_results[3].floats().size(), 3U);
    EXPECT_EQ(lseek(m_results[3].fd(), 0, SEEK_CUR), 12);
}

TEST_F(LarodCalls, TheCardIsReadFromItsStartAndItsFileStaysOpen) {
    const TemporaryFile file(kMotionCard);
    ASSERT_EQ(lseek(file.fd(), 5, SEEK_SET), 5);
    m_model = larodLoadModel(m_connection, file.fd(), m_device, LAROD_ACCESS_PRIVATE, "card", nullptr, &m_error);
    EXPECT_NE(m_model, nullptr);
    EXPECT_EQ(lseek(file.fd(), 0, SEEK_CUR), 5);
}

TEST_F(LarodCalls, OnlyTheOneDeviceExists) {
    EXPECT_EQ(larodGetDevice(m_connection, "cpu", 0, &m_error), nullptr);
    expectError(LAROD_ERROR_INVALID_CHIP_ID, "expected device google-edge-tpu-tflite instance 0, got cpu instance 0");
    larodClearError(&m_error);
    EXPECT_EQ(larodGetDevice(m_connection, "google-edge-tpu-tflite", 1, &m_error), nullptr);
    expectError(LAROD_ERROR_INVALID_CHIP_ID,
                "expected device google-edge-tpu-tflite instance 0, got google-edge-tpu-tflite instance 1");
}

TEST_F(LarodCalls, ABadCardIsALoadErrorNamingTheModel) {
    load(R"({"engine":"tpu"})");
    EXPECT_EQ(m_model, nullptr);
    expectError(LAROD_ERROR_LOAD_MODEL,
                R"(model card test card: "engine": expected one of opencv-dnn, motion, got "tpu")");
}

TEST_F(LarodCalls, AMissingNetworkFileIsALoadError) {
    load(R"({"engine":"opencv-dnn","network":["/nowhere/a.onnx"],"input":{"width":32,"height":32},"decoder":"ssd",)"
         R"("classes":{"0":"Person"}})");
    EXPECT_EQ(m_model, nullptr);
    expectError(LAROD_ERROR_LOAD_MODEL,
                R"(model card test card: "network": expected a file /nowhere/a.onnx, which is not there)");
}

TEST_F(LarodCalls, AFileThatIsNoNetworkIsALoadError) {
    load(R"({"engine":"opencv-dnn","network":["/proc/self/status"],"input":{"width":32,"height":32},"decoder":"ssd",)"
         R"("classes":{"0":"Person"}})");
    EXPECT_EQ(m_model, nullptr);
    ASSERT_NE(m_error, nullptr);
    EXPECT_EQ(m_error->code, LAROD_ERROR_LOAD_MODEL);
    EXPECT_NE(std::string(m_error->msg).find("expected a network in /proc/self/status"), std::string::npos)
        << m_error->msg;
}

TEST_F(LarodCalls, AClosedCardFileIsAFileError) {
    m_model = larodLoadModel(m_connection, -1, m_device, LAROD_ACCESS_PRIVATE, "card", nullptr, &m_error);
    EXPECT_EQ(m_model, nullptr);
    expectError(LAROD_ERROR_FD, "expected a readable model card, got Bad file descriptor");
}

TEST_F(LarodCalls, ATensorIsNotBoundToAClosedFile) {
    makeTensors();
    EXPECT_FALSE(larodSetTensorFd(m_inputs[0], -1, &m_error));
    expectError(LAROD_ERROR_FD, "expected an open file, got descriptor -1: Bad file descriptor");
}

TEST_F(LarodCalls, AJobNeedsOneInputAndFourOutputs) {
    makeTensors();
    bindAll();
    EXPECT_EQ(larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 3, nullptr, &m_error), nullptr);
    expectError(LAROD_ERROR_TENSOR_MISMATCH, "expected 1 input and 4 output tensors, got 1 and 3");
}

TEST_F(LarodCalls, AJobNeedsTensorsBoundToFiles) {
    makeTensors();
    ASSERT_TRUE(larodSetTensorFd(m_inputs[0], m_input.fd(), nullptr));
    EXPECT_EQ(larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 4, nullptr, &m_error), nullptr);
    expectError(LAROD_ERROR_FD, "expected output tensor 0 bound to a file, got an unbound one");
}

TEST_F(LarodCalls, AJobNeedsTensorsInTheModelsOrder) {
    makeTensors();
    bindAll();
    std::swap(m_outputs[0], m_outputs[3]);
    EXPECT_EQ(larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 4, nullptr, &m_error), nullptr);
    expectError(LAROD_ERROR_TENSOR_MISMATCH, "expected output tensor 0 of 1600 bytes, got one of 4");
}

TEST_F(LarodCalls, APictureOfTheWrongSizeIsAMismatch) {
    prepareJob();
    m_input.resize(100);
    EXPECT_FALSE(larodRunJob(m_connection, m_request, &m_error));
    expectError(LAROD_ERROR_TENSOR_MISMATCH, "input tensor: expected a file of 18432 bytes, got 100");
}

TEST_F(LarodCalls, AnOutputThatCannotBeWrittenIsAFileError) {
    makeTensors();
    bindAll();
    m_input.resize(kPictureBytes);
    const std::unique_ptr<FILE, int (*)(FILE*)> full(std::fopen("/dev/full", "w"), &std::fclose);
    ASSERT_NE(full, nullptr);
    ASSERT_TRUE(larodSetTensorFd(m_outputs[2], fileno(full.get()), nullptr));
    m_request = larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 4, nullptr, nullptr);
    EXPECT_FALSE(larodRunJob(m_connection, m_request, &m_error));
    expectError(LAROD_ERROR_FD, "output tensor 2: expected a writable file, got No space left on device");
}

TEST_F(LarodCalls, AJobOverADeletedModelFails) {
    prepareJob();
    ASSERT_TRUE(larodDeleteModel(m_connection, m_model, nullptr));
    EXPECT_FALSE(larodRunJob(m_connection, m_request, &m_error));
    expectError(LAROD_ERROR_MODEL_NOT_FOUND, "expected a loaded model, got one taken off the service");
    larodClearError(&m_error);
    EXPECT_FALSE(larodDeleteModel(m_connection, m_model, &m_error)) << "a second time";
    expectError(LAROD_ERROR_MODEL_NOT_FOUND, "expected a loaded model, got one taken off the service");
}

TEST_F(LarodCalls, AModelIsNotServedToAnotherConnection) {
    prepareJob();
    larodConnection* other = nullptr;
    ASSERT_TRUE(larodConnect(&other, nullptr));
    EXPECT_FALSE(larodRunJob(other, m_request, &m_error));
    expectError(LAROD_ERROR_PERMISSION, "expected a model of this connection, got one of another");
    larodDisconnect(&other, nullptr);
}

TEST_F(LarodCalls, DisconnectingTakesTheModelsAlong) {
    prepareJob();
    larodConnection* other = nullptr;
    ASSERT_TRUE(larodConnect(&other, nullptr));
    ASSERT_TRUE(larodDisconnect(&m_connection, nullptr));
    EXPECT_EQ(m_connection, nullptr);
    EXPECT_FALSE(larodRunJob(other, m_request, &m_error));
    expectError(LAROD_ERROR_MODEL_NOT_FOUND, "expected a loaded model, got one taken off the service");
    m_connection = other;
}

TEST_F(LarodCalls, AnErrorSlotInUseIsLeftAlone) {
    larodGetDevice(m_connection, "first", 0, &m_error);
    larodGetDevice(m_connection, "second", 0, &m_error);
    expectError(LAROD_ERROR_INVALID_CHIP_ID, "expected device google-edge-tpu-tflite instance 0, got first instance 0");
}

TEST_F(LarodCalls, NullsAreRefused) {
    EXPECT_FALSE(larodConnect(nullptr, nullptr));
    larodConnection* none = nullptr;
    EXPECT_FALSE(larodDisconnect(&none, &m_error));
    expectError(LAROD_ERROR_CONNECTION, "expected a connection, got NULL");
    EXPECT_EQ(larodCreateModelInputs(nullptr, &m_inputCount, nullptr), nullptr);
    EXPECT_FALSE(larodRunJob(m_connection, nullptr, nullptr));
    larodClearError(nullptr);
    larodDestroyModel(nullptr);
}

}  // namespace
