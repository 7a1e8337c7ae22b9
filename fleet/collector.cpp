#include "fleet/collector.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace fleet {
namespace {

// Many lines a transaction, and little memory.
constexpr size_t kMostBytes = size_t{8} << 20;
// Who sends garbage of a thousand kinds does not fill the memory with it.
constexpr size_t kMostTold = 10000;

}  // namespace

std::vector<Confirmation> storeAll(Database& database, const std::vector<Batch>& batches,
                                   const std::function<void(const Batch& batch, const std::string& reason)>& refuse) {
    try {
        return database.store(batches);
    } catch (const Refusal& refusal) {
        if (batches.size() == 1) {
            refuse(batches.front(), refusal.what());
            return {};
        }
    }
    std::vector<Confirmation> confirmed;
    for (const Batch& batch : batches) {
        const std::vector<Confirmation> one = storeAll(database, {batch}, refuse);
        confirmed.insert(confirmed.end(), one.begin(), one.end());
    }
    return confirmed;
}

void Collector::step(std::chrono::milliseconds most) {
    std::vector<Batch> batches;
    for (const Message& message : m_broker.receive(most, kMostBytes)) {
        try {
            batches.push_back(readBatch(message.topic, message.payload));
        } catch (const std::runtime_error& error) {
            refuse(message.topic, error.what());
        }
    }
    if (batches.empty()) {
        return;
    }
    const auto refused = [this](const Batch& batch, const std::string& reason) { refuse(batch.prefix, reason); };
    for (const Confirmation& confirmed : storeAll(m_database, batches, refused)) {
        const nlohmann::ordered_json text = {{"epoch", confirmed.epoch}, {"through", confirmed.through}};
        m_broker.publishState(confirmed.prefix + "/confirmed", text.dump());
    }
}

void Collector::refuse(const std::string& prefix, const std::string& reason) {
    if (m_refused.size() < kMostTold && m_refused.insert(prefix + "\n" + reason).second) {
        m_say(prefix + ": refused: " + reason);
    }
}

}  // namespace fleet
