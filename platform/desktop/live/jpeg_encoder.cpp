#include "desktop/live/jpeg_encoder.h"

#include <array>
#include <stdexcept>
#include <turbojpeg.h>

namespace desktop {
namespace {

constexpr int kQuality = 80;

}  // namespace

void JpegEncoder::Destroy::operator()(void* encoder) const {
    tjDestroy(encoder);
}

JpegEncoder::JpegEncoder() : m_encoder(tjInitCompress()) {
    if (!m_encoder) {
        throw std::runtime_error(std::string("no JPEG encoder: ") + tjGetErrorStr2(nullptr));
    }
}

std::string JpegEncoder::encode(const Planes& planes) {
    m_room.resize(tjBufSize(planes.width, planes.height, TJSAMP_420));
    std::array<const unsigned char*, 3> rows = {planes.y.data(), planes.u.data(), planes.v.data()};
    unsigned char* room = m_room.data();
    unsigned long size = m_room.size();
    if (tjCompressFromYUVPlanes(m_encoder.get(), rows.data(), planes.width, nullptr, planes.height, TJSAMP_420, &room,
                                &size, kQuality, TJFLAG_NOREALLOC) != 0) {
        throw std::runtime_error("cannot encode " + std::to_string(planes.width) + "x" + std::to_string(planes.height) +
                                 " as JPEG: " + tjGetErrorStr2(m_encoder.get()));
    }
    return {reinterpret_cast<const char*>(room), size};
}

}  // namespace desktop
