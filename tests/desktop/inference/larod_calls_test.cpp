#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <larod.h>

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
constexpr size_t kPictureBytes = 18432;  // 3 * 96 * 64

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

    void makeTensors() {
        load(kMotionCard);
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

    void prepareJob() {
        makeTensors();
        bindAll();
        m_input.resize(kPictureBytes);
        m_request = larodCreateJobRequest(m_model, m_inputs, 1, m_outputs, 4, nullptr, nullptr);
        ASSERT_NE(m_request, nullptr);
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
