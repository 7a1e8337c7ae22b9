#include "fleet/batch.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

namespace fleet {
namespace {

constexpr size_t kLongestLine = size_t{1} << 20;
constexpr size_t kShown = 80;

/** A text that came, as a message shows it. */
std::string shown(std::string_view text) {
    std::string safe =
        nlohmann::json(text.substr(0, kShown)).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    return text.size() > kShown ? safe + " and " + std::to_string(text.size() - kShown) + " bytes more" : safe;
}

void readHeader(std::string_view text, Batch& batch) {
    const nlohmann::json header = nlohmann::json::parse(text, nullptr, false);
    if (!header.is_object() || !header.contains("epoch") || !header["epoch"].is_string() ||
        header["epoch"].get<std::string>().empty() || !header.contains("after") ||
        !header["after"].is_number_integer() || header["after"].get<int64_t>() < 0) {
        throw std::runtime_error(R"(expected {"epoch":TEXT,"after":NUMBER} first, got )" + shown(text));
    }
    batch.epoch = header["epoch"].get<std::string>();
    batch.after = header["after"].get<int64_t>();
    batch.through = batch.after;
}

}  // namespace

Batch readBatch(std::string_view topic, std::string_view payload) {
    Batch batch;
    const size_t level = topic.rfind('/');
    batch.prefix = topic.substr(0, level);
    batch.isInOrder = topic.substr(level + 1) == "ledger";
    if (payload.size() > kLongestBatch) {
        throw std::runtime_error("expected at most " + std::to_string(kLongestBatch) + " bytes, got " +
                                 std::to_string(payload.size()));
    }
    bool isFirst = true;
    while (!payload.empty()) {
        const size_t end = payload.find('\n');
        if (end == std::string_view::npos) {
            throw std::runtime_error("expected each line to have its end, got " + shown(payload));
        }
        const std::string_view text = payload.substr(0, end);
        payload.remove_prefix(end + 1);
        if (isFirst) {
            readHeader(text, batch);
            isFirst = false;
            continue;
        }
        if (text.size() >= kLongestLine) {
            throw std::runtime_error("expected lines of less than 1 MiB, got one of " + std::to_string(text.size()) +
                                     " bytes");
        }
        std::optional<ledger::LineHead> head = ledger::headOf(text);
        if (!head) {
            throw std::runtime_error("expected a line of the ledger, got " + shown(text));
        }
        if (head->epoch != batch.epoch || head->seq <= batch.through) {
            throw std::runtime_error("expected a line of epoch " + shown(batch.epoch) + " behind " +
                                     std::to_string(batch.through) + ", got " + shown(text));
        }
        batch.through = head->seq;
        batch.lines.push_back({std::move(*head), std::string(text)});
    }
    if (batch.lines.empty()) {
        throw std::runtime_error("expected lines, got none");
    }
    return batch;
}

}  // namespace fleet
