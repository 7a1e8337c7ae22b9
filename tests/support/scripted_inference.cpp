#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <unistd.h>
#include <utility>

#include "script.h"
#include "scripted_platform.h"

struct larodConnection {};
struct larodDevice {};
struct larodModel {};
struct larodTensor {
    int fd = -1;
};
struct larodJobRequest {
    std::vector<larodTensor*> inputs;
    std::vector<larodTensor*> outputs;
};

namespace {

constexpr size_t kSlots = 100;

/** Receives the file of the input tensor. */
using Job = std::function<std::vector<scripted::Candidate>(int input)>;

struct InferenceScript {
    Job job;
    size_t inputs = 1;
    size_t outputs = 4;
    size_t tensorBytes = 0;
};

InferenceScript& script() {
    static InferenceScript instance;
    return instance;
}

using scripted::failsNow;

larodTensor** makeTensors(size_t number, size_t* count) {
    *count = number;
    auto tensors = std::make_unique<larodTensor*[]>(number);
    for (size_t i = 0; i < number; ++i) {
        tensors[i] = std::make_unique<larodTensor>().release();
    }
    return tensors.release();
}

std::vector<uint8_t> readFile(int fd) {
    std::vector<uint8_t> bytes(static_cast<size_t>(std::max<off_t>(lseek(fd, 0, SEEK_END), 0)));
    const ssize_t count = pread(fd, bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
}

template <size_t size>
bool writeFloats(int fd, const std::array<float, size>& values) {
    script().tensorBytes += sizeof(values);
    return write(fd, values.data(), sizeof(values)) == static_cast<ssize_t>(sizeof(values));
}

}  // namespace

namespace scripted {

void resetInference() {
    script() = {};
    find({});
}

void find(const std::vector<Candidate>& candidates) {
    onEachJob([candidates] { return candidates; });
}

void onJob(std::function<std::vector<Candidate>(const std::vector<uint8_t>&)> job) {
    script().job = [job = std::move(job)](int input) { return job(readFile(input)); };
}

void onEachJob(std::function<std::vector<Candidate>()> job) {
    script().job = [job = std::move(job)](int) { return job(); };
}

size_t tensorBytes() {
    return script().tensorBytes;
}

void setTensorCounts(size_t inputs, size_t outputs) {
    script().inputs = inputs;
    script().outputs = outputs;
}

}  // namespace scripted

void larodClearError(larodError** error) {
    if (error != nullptr && *error != nullptr) {
        std::free(const_cast<char*>((*error)->msg));
        delete *error;
        *error = nullptr;
    }
}

bool larodConnect(larodConnection** connection, larodError** error) {
    if (failsNow("larodConnect", error)) {
        return false;
    }
    *connection = std::make_unique<larodConnection>().release();
    return true;
}

bool larodDisconnect(larodConnection** connection, larodError** error) {
    // A session that cannot be closed in order is gone all the same.
    delete std::exchange(*connection, nullptr);
    return !failsNow("larodDisconnect", error);
}

const larodDevice* larodGetDevice(const larodConnection*, const char*, uint32_t, larodError** error) {
    static const larodDevice device;
    return failsNow("larodGetDevice", error) ? nullptr : &device;
}

larodModel* larodLoadModel(larodConnection*, int, const larodDevice*, larodAccess, const char*, const larodMap*,
                           larodError** error) {
    return failsNow("larodLoadModel", error) ? nullptr : std::make_unique<larodModel>().release();
}

bool larodDeleteModel(larodConnection*, larodModel*, larodError** error) {
    return !failsNow("larodDeleteModel", error);
}

void larodDestroyModel(larodModel** model) {
    failsNow("larodDestroyModel");
    delete std::exchange(*model, nullptr);
}

larodTensor** larodCreateModelInputs(const larodModel*, size_t* count, larodError** error) {
    return failsNow("larodCreateModelInputs", error) ? nullptr : makeTensors(script().inputs, count);
}

larodTensor** larodCreateModelOutputs(const larodModel*, size_t* count, larodError** error) {
    return failsNow("larodCreateModelOutputs", error) ? nullptr : makeTensors(script().outputs, count);
}

bool larodDestroyTensors(larodConnection*, larodTensor*** tensors, size_t count, larodError** error) {
    for (size_t i = 0; i < count; ++i) {
        delete (*tensors)[i];
    }
    delete[] std::exchange(*tensors, nullptr);
    return !failsNow("larodDestroyTensors", error);
}

bool larodSetTensorFd(larodTensor* tensor, int fd, larodError** error) {
    if (failsNow("larodSetTensorFd", error)) {
        return false;
    }
    tensor->fd = fd;
    return true;
}

larodJobRequest* larodCreateJobRequest(const larodModel*, larodTensor** inputs, size_t inputCount,
                                       larodTensor** outputs, size_t outputCount, larodMap*, larodError** error) {
    if (failsNow("larodCreateJobRequest", error)) {
        return nullptr;
    }
    return std::make_unique<larodJobRequest>(
               larodJobRequest{{inputs, inputs + inputCount}, {outputs, outputs + outputCount}})
        .release();
}

void larodDestroyJobRequest(larodJobRequest** request) {
    failsNow("larodDestroyJobRequest");
    delete std::exchange(*request, nullptr);
}

bool larodRunJob(larodConnection*, const larodJobRequest* request, larodError** error) {
    if (failsNow("larodRunJob", error)) {
        return false;
    }
    const std::vector<scripted::Candidate> found = script().job(request->inputs[0]->fd);
    std::array<float, 4 * kSlots> boxes = {};
    std::array<float, kSlots> classes = {};
    std::array<float, kSlots> scores = {};
    for (size_t i = 0; i < std::min(found.size(), kSlots); ++i) {
        boxes[4 * i] = found[i].ymin;
        boxes[4 * i + 1] = found[i].xmin;
        boxes[4 * i + 2] = found[i].ymax;
        boxes[4 * i + 3] = found[i].xmax;
        classes[i] = static_cast<float>(found[i].classId);
        scores[i] = found[i].score;
    }
    const bool written = writeFloats(request->outputs[0]->fd, boxes) && writeFloats(request->outputs[1]->fd, classes) &&
                         writeFloats(request->outputs[2]->fd, scores) &&
                         writeFloats(request->outputs[3]->fd, std::array<float, 1>{static_cast<float>(found.size())});
    if (!written) {
        scripted::refuse(LAROD_ERROR_FD, "cannot write an output tensor", error);
    }
    return written;
}
