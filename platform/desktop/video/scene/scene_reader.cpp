#include "desktop/video/scene/scene_reader.h"

#include <memory>
#include <utility>

#include "desktop/frames/video_error.h"
#include "desktop/video/scene/scene_painter.h"

namespace desktop {
namespace {

constexpr int64_t kMicrosPerSecond = 1'000'000;

class SceneReader : public FrameReader {
public:
    explicit SceneReader(Scene scene)
        : m_scene(std::move(scene)),
          m_painter(std::make_shared<ScenePainter>(m_scene)),
          m_info{m_scene.width, m_scene.height, static_cast<double>(m_scene.frameRate),
                 m_scene.seconds * kMicrosPerSecond, false} {}

    const SourceInfo& info() const override { return m_info; }

    std::optional<Frame> next() override {
        if (m_frame == m_scene.seconds * m_scene.frameRate) {
            return std::nullopt;
        }
        const int frame = m_frame++;
        return Frame{frame * kMicrosPerSecond / m_scene.frameRate,
                     [painter = m_painter, frame] { return painter->draw(frame); }};
    }

private:
    const Scene m_scene;
    const std::shared_ptr<ScenePainter> m_painter;
    const SourceInfo m_info;
    int m_frame = 0;
};

}  // namespace

std::unique_ptr<FrameReader> openScene(const std::string& source) {
    const std::string name = source.substr(source.find(':') + 1);
    std::optional<Scene> scene = findScene(name);
    if (!scene) {
        throw VideoError(VDO_ERROR_NOT_FOUND, source + ": no such scene; known: " + sceneNames());
    }
    return std::make_unique<SceneReader>(std::move(*scene));
}

}  // namespace desktop
