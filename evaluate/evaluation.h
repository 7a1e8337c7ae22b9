#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "config/settings_file.h"
#include "evaluate/results.h"

struct EvaluationOptions {
    std::string clip;                 /**< a file or scene:NAME */
    std::string model = "auto";       /**< a model card's name or path, or "auto" */
    std::string networksFolder;       /**< where the card's network files lie */
    std::optional<Settings> settings; /**< none: a fresh camera's */
    std::string outFolder;            /**< where tracks, events, archives and reports are kept; empty: nowhere */
    /** Told the time of each cycle and the clip's length in seconds, 0 when unknown. */
    std::function<void(double, double)> progress;
};

/** The clip, the model or the settings could not be used; the message says what was expected and what came. */
class EvaluationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * Runs the application's own analysis cycle over a clip, with a clock that follows the frames, as fast as the machine
 * allows. The same clip and options give the same results, byte for byte.
 *
 * Changes the process's working folder, its clock and the desktop services' configuration: one evaluation per process.
 * Throws EvaluationError.
 */
Results evaluate(const EvaluationOptions& options);
