#include "desktop/live/live_request.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <sstream>

#include "desktop/live/anonymised_stream.h"

namespace desktop {
namespace {

constexpr int kMostFps = 60;
constexpr int kWidestByDefault = 1280;
constexpr std::size_t kMostQuoted = 40;

/** What came, fit to be told back. */
std::string quoted(const std::string& text) {
    std::string shown = text.substr(0, kMostQuoted);
    std::replace_if(
        shown.begin(), shown.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return "\"" + shown + (text.size() > kMostQuoted ? "..." : "") + "\"";
}

std::map<std::string, std::string> valuesOf(const std::string& query) {
    std::map<std::string, std::string> values;
    std::istringstream pairs(query);
    for (std::string pair; std::getline(pairs, pair, '&');) {
        const std::size_t equals = pair.find('=');
        values[pair.substr(0, equals)] = equals == std::string::npos ? "" : pair.substr(equals + 1);
    }
    return values;
}

StreamSize defaultSize(const std::vector<StreamSize>& sizes) {
    const auto found =
        std::find_if(sizes.begin(), sizes.end(), [](const StreamSize& size) { return size.width <= kWidestByDefault; });
    return found == sizes.end() ? sizes.back() : *found;
}

std::string listOf(const std::vector<StreamSize>& sizes) {
    std::string list;
    for (const StreamSize& size : sizes) {
        list += (list.empty() ? "" : ", ") + textOf(size);
    }
    return list;
}

int parseFps(const std::string& text) {
    int fps = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), fps);
    if (error != std::errc() || end != text.data() + text.size() || fps < 1 || fps > kMostFps) {
        throw Refusal{400,
                      "fps: expected a whole number from 1 to " + std::to_string(kMostFps) + ", got " + quoted(text)};
    }
    return fps;
}

LiveRequest parse(const std::string& line, const std::vector<StreamSize>& sizes) {
    std::istringstream words(line);
    std::string method;
    std::string target;
    words >> method >> target;
    if (method != "GET") {
        throw Refusal{405, "expected GET, got " + quoted(method)};
    }
    const std::size_t question = target.find('?');
    const std::string path = target.substr(0, question);
    LiveRequest request;
    request.video = path == "/live/video.mjpg";
    if (!request.video && path != "/live/image.jpg") {
        throw Refusal{404, "expected /live/image.jpg or /live/video.mjpg, got " + quoted(path)};
    }
    const auto values = valuesOf(question == std::string::npos ? "" : target.substr(question + 1));
    request.size = defaultSize(sizes);
    if (const auto value = values.find("resolution"); value != values.end()) {
        const auto size = parseSize(value->second);
        if (!size || std::find(sizes.begin(), sizes.end(), *size) == sizes.end()) {
            throw Refusal{400, "resolution: expected one of " + listOf(sizes) + ", got " + quoted(value->second)};
        }
        request.size = *size;
    }
    if (const auto value = values.find("overlays"); value != values.end()) {
        if (value->second != "0" && value->second != "1") {
            throw Refusal{400, "overlays: expected 0 or 1, got " + quoted(value->second)};
        }
        request.overlays = value->second == "1";
    }
    if (const auto value = values.find("fps"); value != values.end()) {
        request.fps = parseFps(value->second);
    }
    return request;
}

}  // namespace

std::string textOf(const StreamSize& size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

std::variant<LiveRequest, Refusal> parseLiveRequest(const std::string& line, const std::vector<StreamSize>& sizes) {
    try {
        return parse(line, sizes);
    } catch (const Refusal& refusal) {
        return refusal;
    }
}

}  // namespace desktop
