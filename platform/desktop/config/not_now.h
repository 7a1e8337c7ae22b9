#pragma once

#include <stdexcept>

namespace desktop {

/** Something is in the way that may go by itself: another program that has the port, a full disk. */
class NotNow : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace desktop
