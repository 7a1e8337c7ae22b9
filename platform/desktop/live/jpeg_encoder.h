#pragma once

#include <memory>
#include <string>
#include <vector>

#include "desktop/live/planes.h"

namespace desktop {

/** Encodes pictures as JPEG. Used by one thread at a time. */
class JpegEncoder {
public:
    /** Throws std::runtime_error when there is no memory for it. */
    JpegEncoder();

    /** Returns a JPEG file. Throws std::runtime_error with the encoder's reason. */
    std::string encode(const Planes& planes);

private:
    struct Destroy {
        void operator()(void* encoder) const;
    };

    std::unique_ptr<void, Destroy> m_encoder;
    std::vector<unsigned char> m_room;  // kept from picture to picture
};

}  // namespace desktop
