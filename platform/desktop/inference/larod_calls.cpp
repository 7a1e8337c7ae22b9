// The calls of the inference service.
//
// A session (larodConnection) keeps the models that were loaded through it. A model handle only refers to its model,
// so that a job over a model that was taken off the service fails with an error. Tensors and job requests are plain
// values behind handles; a job request copies what the tensors were bound to when it was made.
//
// One session is used by one thread at a time; separate sessions share nothing.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

#include <larod.h>

#include "desktop/frames/last_fetched.h"
#include "desktop/inference/answers.h"
#include "desktop/inference/engines.h"

namespace {

struct ServedModel {
    desktop::ModelCard card;
    std::unique_ptr<desktop::Engine> engine;
    std::unique_ptr<desktop::Answers> answers;
    cv::Mat picture; /**< the input tensor of the running job */
};

constexpr size_t kInputs = 1;
constexpr std::array<size_t, 4> kOutputBytes = {desktop::kResultSlots * 4 * sizeof(float),
                                                desktop::kResultSlots * sizeof(float),
                                                desktop::kResultSlots * sizeof(float), sizeof(float)};
constexpr const char* kDeviceName = "google-edge-tpu-tflite";

}  // namespace

struct larodDevice {};

struct larodConnection {
    larodDevice device;
    std::vector<std::shared_ptr<ServedModel>> models;
};

struct larodModel {
    std::string name;
    std::weak_ptr<ServedModel> served;
};

struct larodTensor {
    size_t bytes = 0;
    int fd = -1; /**< the caller's */
};

struct larodJobRequest {
    std::weak_ptr<ServedModel> served;
    larodTensor input;
    std::array<larodTensor, kOutputBytes.size()> outputs;
};

namespace {

struct OwnedError : larodError {
    std::string text;
};

class ServiceError : public std::runtime_error {
public:
    ServiceError(larodErrorCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}
    [[nodiscard]] larodErrorCode code() const { return m_code; }

private:
    larodErrorCode m_code;
};

void fill(larodError** slot, larodErrorCode code, const std::string& text) {
    if (slot == nullptr || *slot != nullptr) {
        return;
    }
    auto error = std::make_unique<OwnedError>();
    error->text = text;
    error->code = code;
    error->msg = error->text.c_str();
    *slot = error.release();
}

/** Runs the body of a call; whatever it throws becomes an error, of code unless it says another. */
template <typename Body>
std::invoke_result_t<Body> guarded(larodError** slot, larodErrorCode code, Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (const ServiceError& error) {
        fill(slot, error.code(), error.what());
    } catch (const std::bad_alloc& error) {
        fill(slot, LAROD_ERROR_ALLOC, error.what());
    } catch (const std::exception& error) {
        fill(slot, code, error.what());
    }
    return {};
}

void require(bool given, larodErrorCode code, const char* what) {
    if (!given) {
        throw ServiceError(code, std::string("expected ") + what + ", got NULL");
    }
}

std::string systemError() {
    return std::generic_category().message(errno);
}

std::string readCardText(int fd) {
    constexpr size_t kLargestCard = 1U << 20U;
    std::string text(kLargestCard + 1, '\0');
    size_t length = 0;
    while (length < text.size()) {
        const ssize_t got = pread(fd, text.data() + length, text.size() - length, static_cast<off_t>(length));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw ServiceError(LAROD_ERROR_FD, "expected a readable model card, got " + systemError());
        }
        if (got == 0) {
            break;
        }
        length += static_cast<size_t>(got);
    }
    if (length > kLargestCard) {
        throw ServiceError(LAROD_ERROR_LOAD_MODEL,
                           "expected a model card of at most " + std::to_string(kLargestCard) + " bytes, got more");
    }
    text.resize(length);
    return text;
}

std::shared_ptr<ServedModel> servedModel(const std::weak_ptr<ServedModel>& reference) {
    auto served = reference.lock();
    if (!served) {
        throw ServiceError(LAROD_ERROR_MODEL_NOT_FOUND, "expected a loaded model, got one taken off the service");
    }
    return served;
}

size_t inputBytes(const ServedModel& served) {
    return 3 * static_cast<size_t>(served.card.tensorWidth) * static_cast<size_t>(served.card.tensorHeight);
}

/** Makes an array of tensors of the given sizes, in the form that the calls hand out. */
larodTensor** makeTensors(const size_t* bytes, size_t count) {
    std::vector<std::unique_ptr<larodTensor>> tensors;
    for (size_t i = 0; i < count; ++i) {
        tensors.push_back(std::make_unique<larodTensor>(larodTensor{bytes[i], -1}));
    }
    auto array = std::make_unique<larodTensor*[]>(count);
    for (size_t i = 0; i < count; ++i) {
        array[i] = tensors[i].release();
    }
    return array.release();
}

larodTensor boundTensor(const larodTensor* tensor, size_t expectedBytes, const std::string& what) {
    if (tensor == nullptr) {
        throw ServiceError(LAROD_ERROR_JOB, "expected " + what + ", got NULL");
    }
    if (tensor->bytes != expectedBytes) {
        throw ServiceError(LAROD_ERROR_TENSOR_MISMATCH, "expected " + what + " of " + std::to_string(expectedBytes) +
                                                            " bytes, got one of " + std::to_string(tensor->bytes));
    }
    if (tensor->fd < 0) {
        throw ServiceError(LAROD_ERROR_FD, "expected " + what + " bound to a file, got an unbound one");
    }
    return *tensor;
}

void readInput(const larodTensor& input, cv::Mat& picture) {
    struct stat status = {};
    if (fstat(input.fd, &status) != 0) {
        throw ServiceError(LAROD_ERROR_FD, "input tensor: expected an open file, got " + systemError());
    }
    size_t length = 0;
    if (static_cast<size_t>(status.st_size) == input.bytes) {
        while (length < input.bytes) {
            const ssize_t got =
                pread(input.fd, picture.data + length, input.bytes - length, static_cast<off_t>(length));
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                throw ServiceError(LAROD_ERROR_FD, "input tensor: expected a readable file, got " + systemError());
            }
            if (got == 0) {
                break;
            }
            length += static_cast<size_t>(got);
        }
    } else {
        length = static_cast<size_t>(status.st_size);
    }
    if (length != input.bytes) {
        throw ServiceError(LAROD_ERROR_TENSOR_MISMATCH, "input tensor: expected a file of " +
                                                            std::to_string(input.bytes) + " bytes, got " +
                                                            std::to_string(length));
    }
}

/** The live picture hides what was found here, and what may turn out to be somebody, whatever is made of it. */
void noteForTheLivePicture(std::vector<desktop::Detection> found, const ServedModel& served) {
    std::vector<desktop::FoundBox> boxes;
    const std::vector<desktop::Detection> unconfirmed = served.engine->unconfirmed();
    found.insert(found.end(), unconfirmed.begin(), unconfirmed.end());
    for (const desktop::Detection& detection : found) {
        boxes.push_back({detection.left, detection.top, detection.right, detection.bottom});
    }
    desktop::noteFound(std::move(boxes), served.card.tensorWidth, served.card.tensorHeight);
}

void writeOutput(size_t number, int fd, const float* values, size_t bytes) {
    const auto* data = reinterpret_cast<const char*>(values);
    while (bytes > 0) {
        const ssize_t written = write(fd, data, bytes);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            throw ServiceError(LAROD_ERROR_FD, "output tensor " + std::to_string(number) +
                                                   ": expected a writable file, got " + systemError());
        }
        data += written;
        bytes -= static_cast<size_t>(written);
    }
}

}  // namespace

void larodClearError(larodError** error) {
    if (error != nullptr) {
        const std::unique_ptr<OwnedError> owned(static_cast<OwnedError*>(*error));
        *error = nullptr;
    }
}

bool larodConnect(larodConnection** connection, larodError** error) {
    return guarded(error, LAROD_ERROR_CONNECTION, [&] {
        require(connection != nullptr, LAROD_ERROR_CONNECTION, "a place for the connection");
        *connection = std::make_unique<larodConnection>().release();
        return true;
    });
}

bool larodDisconnect(larodConnection** connection, larodError** error) {
    return guarded(error, LAROD_ERROR_KILL_SESSION, [&] {
        require(connection != nullptr && *connection != nullptr, LAROD_ERROR_CONNECTION, "a connection");
        const std::unique_ptr<larodConnection> owned(std::exchange(*connection, nullptr));
        return true;
    });
}

const larodDevice* larodGetDevice(const larodConnection* connection, const char* name, uint32_t instance,
                                  larodError** error) {
    return guarded(error, LAROD_ERROR_INVALID_CHIP_ID, [&]() -> const larodDevice* {
        require(connection != nullptr, LAROD_ERROR_CONNECTION, "a connection");
        require(name != nullptr, LAROD_ERROR_INVALID_CHIP_ID, "a device name");
        if (std::strcmp(name, kDeviceName) != 0 || instance != 0) {
            throw std::runtime_error(std::string("expected device ") + kDeviceName + " instance 0, got " + name +
                                     " instance " + std::to_string(instance));
        }
        return &connection->device;
    });
}

larodModel* larodLoadModel(larodConnection* connection, int fd, const larodDevice* device, larodAccess access,
                           const char* name, const larodMap* /*params*/, larodError** error) {
    return guarded(error, LAROD_ERROR_LOAD_MODEL, [&]() -> larodModel* {
        require(connection != nullptr, LAROD_ERROR_CONNECTION, "a connection");
        require(name != nullptr, LAROD_ERROR_LOAD_MODEL, "a model name");
        if (device != &connection->device) {
            throw ServiceError(LAROD_ERROR_INVALID_CHIP_ID, "expected a device of this connection, got another");
        }
        if (access != LAROD_ACCESS_PRIVATE && access != LAROD_ACCESS_PUBLIC) {
            throw ServiceError(LAROD_ERROR_INVALID_ACCESS,
                               "expected private or public access, got " + std::to_string(access));
        }
        const std::string text = readCardText(fd);
        auto served = std::make_shared<ServedModel>();
        auto model = std::make_unique<larodModel>(larodModel{name, served});
        try {
            served->card = desktop::parseModelCard(text);
            served->engine = desktop::makeEngine(served->card);
            served->answers = std::make_unique<desktop::Answers>(served->card);
        } catch (const std::exception& failure) {
            throw ServiceError(LAROD_ERROR_LOAD_MODEL, "model card " + model->name + ": " + failure.what());
        }
        served->picture.create(served->card.tensorHeight, served->card.tensorWidth, CV_8UC3);
        connection->models.push_back(std::move(served));
        return model.release();
    });
}

bool larodDeleteModel(larodConnection* connection, larodModel* model, larodError** error) {
    return guarded(error, LAROD_ERROR_DELETE_MODEL, [&] {
        require(connection != nullptr, LAROD_ERROR_CONNECTION, "a connection");
        require(model != nullptr, LAROD_ERROR_DELETE_MODEL, "a model");
        const auto found = std::find(connection->models.begin(), connection->models.end(), servedModel(model->served));
        if (found == connection->models.end()) {
            throw std::runtime_error("expected a model of this connection, got " + model->name + " of another");
        }
        connection->models.erase(found);
        return true;
    });
}

void larodDestroyModel(larodModel** model) {
    if (model != nullptr) {
        const std::unique_ptr<larodModel> owned(std::exchange(*model, nullptr));
    }
}

larodTensor** larodCreateModelInputs(const larodModel* model, size_t* count, larodError** error) {
    return guarded(error, LAROD_ERROR_MODEL_NOT_FOUND, [&] {
        require(model != nullptr && count != nullptr, LAROD_ERROR_MODEL_NOT_FOUND, "a model and a place for the count");
        const size_t bytes = inputBytes(*servedModel(model->served));
        larodTensor** tensors = makeTensors(&bytes, kInputs);
        *count = kInputs;
        return tensors;
    });
}

larodTensor** larodCreateModelOutputs(const larodModel* model, size_t* count, larodError** error) {
    return guarded(error, LAROD_ERROR_MODEL_NOT_FOUND, [&] {
        require(model != nullptr && count != nullptr, LAROD_ERROR_MODEL_NOT_FOUND, "a model and a place for the count");
        servedModel(model->served);
        larodTensor** tensors = makeTensors(kOutputBytes.data(), kOutputBytes.size());
        *count = kOutputBytes.size();
        return tensors;
    });
}

bool larodDestroyTensors(larodConnection* connection, larodTensor*** tensors, size_t count, larodError** error) {
    return guarded(error, LAROD_ERROR_CONNECTION, [&] {
        require(connection != nullptr, LAROD_ERROR_CONNECTION, "a connection");
        require(tensors != nullptr, LAROD_ERROR_TENSOR_MISMATCH, "an array of tensors");
        const std::unique_ptr<larodTensor*[]> array(std::exchange(*tensors, nullptr));
        for (size_t i = 0; array && i < count; ++i) {
            const std::unique_ptr<larodTensor> tensor(array[i]);
        }
        return true;
    });
}

bool larodSetTensorFd(larodTensor* tensor, int fd, larodError** error) {
    return guarded(error, LAROD_ERROR_FD, [&] {
        require(tensor != nullptr, LAROD_ERROR_TENSOR_MISMATCH, "a tensor");
        if (fcntl(fd, F_GETFD) < 0) {
            throw std::runtime_error("expected an open file, got descriptor " + std::to_string(fd) + ": " +
                                     systemError());
        }
        tensor->fd = fd;
        return true;
    });
}

larodJobRequest* larodCreateJobRequest(const larodModel* model, larodTensor** inputs, size_t inputCount,
                                       larodTensor** outputs, size_t outputCount, larodMap* /*params*/,
                                       larodError** error) {
    return guarded(error, LAROD_ERROR_JOB, [&] {
        require(model != nullptr, LAROD_ERROR_MODEL_NOT_FOUND, "a model");
        require(inputs != nullptr && outputs != nullptr, LAROD_ERROR_JOB, "input and output tensors");
        const auto served = servedModel(model->served);
        if (inputCount != kInputs || outputCount != kOutputBytes.size()) {
            throw ServiceError(LAROD_ERROR_TENSOR_MISMATCH, "expected 1 input and 4 output tensors, got " +
                                                                std::to_string(inputCount) + " and " +
                                                                std::to_string(outputCount));
        }
        auto request = std::make_unique<larodJobRequest>();
        request->served = served;
        request->input = boundTensor(inputs[0], inputBytes(*served), "input tensor");
        for (size_t i = 0; i < kOutputBytes.size(); ++i) {
            request->outputs[i] = boundTensor(outputs[i], kOutputBytes[i], "output tensor " + std::to_string(i));
        }
        return request.release();
    });
}

void larodDestroyJobRequest(larodJobRequest** request) {
    if (request != nullptr) {
        const std::unique_ptr<larodJobRequest> owned(std::exchange(*request, nullptr));
    }
}

bool larodRunJob(larodConnection* connection, const larodJobRequest* request, larodError** error) {
    return guarded(error, LAROD_ERROR_JOB, [&] {
        require(connection != nullptr, LAROD_ERROR_CONNECTION, "a connection");
        require(request != nullptr, LAROD_ERROR_JOB, "a job request");
        const auto served = servedModel(request->served);
        if (std::find(connection->models.begin(), connection->models.end(), served) == connection->models.end()) {
            throw ServiceError(LAROD_ERROR_PERMISSION, "expected a model of this connection, got one of another");
        }
        readInput(request->input, served->picture);
        const std::vector<desktop::Detection> found = served->engine->detect(served->picture);
        noteForTheLivePicture(found, *served);
        const desktop::ResultTensors results = served->answers->answer(found);
        const std::array<const float*, kOutputBytes.size()> values = {results.locations.data(), results.classes.data(),
                                                                      results.scores.data(), results.count.data()};
        for (size_t i = 0; i < values.size(); ++i) {
            writeOutput(i, request->outputs[i].fd, values[i], kOutputBytes[i]);
        }
        return true;
    });
}
