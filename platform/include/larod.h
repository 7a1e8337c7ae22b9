#pragma once

/**
 * Inference service: models, tensors bound to file descriptors, jobs.
 *
 * Failing calls return false or NULL and, when the caller passed an error slot that holds NULL, fill it with an error
 * that the caller releases with larodClearError.
 */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct larodConnection larodConnection;
typedef struct larodDevice larodDevice;
typedef struct larodModel larodModel;
typedef struct larodTensor larodTensor;
typedef struct larodJobRequest larodJobRequest;
typedef struct larodMap larodMap;

typedef enum {
    LAROD_ERROR_NONE = 0,
    LAROD_ERROR_JOB = -1,
    LAROD_ERROR_LOAD_MODEL = -2,
    LAROD_ERROR_FD = -3,
    LAROD_ERROR_MODEL_NOT_FOUND = -4,
    LAROD_ERROR_PERMISSION = -5,
    LAROD_ERROR_CONNECTION = -6,
    LAROD_ERROR_CREATE_SESSION = -7,
    LAROD_ERROR_KILL_SESSION = -8,
    LAROD_ERROR_INVALID_CHIP_ID = -9,
    LAROD_ERROR_INVALID_ACCESS = -10,
    LAROD_ERROR_DELETE_MODEL = -11,
    LAROD_ERROR_TENSOR_MISMATCH = -12,
    LAROD_ERROR_VERSION_MISMATCH = -13,
    LAROD_ERROR_ALLOC = -14,
} larodErrorCode;

typedef struct {
    larodErrorCode code;
    const char* msg;
} larodError;

typedef enum {
    LAROD_ACCESS_INVALID = 0,
    LAROD_ACCESS_PRIVATE = 1,
    LAROD_ACCESS_PUBLIC = 2,
} larodAccess;

/** Releases an error and sets the slot to NULL; a slot that holds NULL is left alone. */
void larodClearError(larodError** error);

/** Opens a session with the service. */
bool larodConnect(larodConnection** connection, larodError** error);

/** Closes the session, with everything that it still holds, and clears the caller's pointer. */
bool larodDisconnect(larodConnection** connection, larodError** error);

/** Returns a device by name and instance number. The connection owns it. */
const larodDevice* larodGetDevice(const larodConnection* connection, const char* name, uint32_t instance,
                                  larodError** error);

/** Loads a model from an open file onto a device; params may be NULL. Release with larodDestroyModel. */
larodModel* larodLoadModel(larodConnection* connection, int fd, const larodDevice* device, larodAccess access,
                           const char* name, const larodMap* params, larodError** error);

/** Takes the model off the service; the handle stays to be destroyed. */
bool larodDeleteModel(larodConnection* connection, larodModel* model, larodError** error);

/** Releases a model handle and clears the caller's pointer. */
void larodDestroyModel(larodModel** model);

/** Makes the model's input tensors, count of them. Release with larodDestroyTensors. */
larodTensor** larodCreateModelInputs(const larodModel* model, size_t* count, larodError** error);

/** Makes the model's output tensors, count of them. Release with larodDestroyTensors. */
larodTensor** larodCreateModelOutputs(const larodModel* model, size_t* count, larodError** error);

/** Releases an array of tensors and clears the caller's pointer. */
bool larodDestroyTensors(larodConnection* connection, larodTensor*** tensors, size_t count, larodError** error);

/** Binds a tensor to an open file; the caller keeps the descriptor. */
bool larodSetTensorFd(larodTensor* tensor, int fd, larodError** error);

/** Prepares a job over a model and its bound tensors; params may be NULL. Release with larodDestroyJobRequest. */
larodJobRequest* larodCreateJobRequest(const larodModel* model, larodTensor** inputs, size_t inputCount,
                                       larodTensor** outputs, size_t outputCount, larodMap* params,
                                       larodError** error);

/** Releases a job request and clears the caller's pointer. */
void larodDestroyJobRequest(larodJobRequest** request);

/**
 * Runs a job and waits for it. The input file is read from its start; each output is written through its descriptor
 * from the descriptor's current offset on.
 */
bool larodRunJob(larodConnection* connection, const larodJobRequest* request, larodError** error);

#ifdef __cplusplus
}
#endif
