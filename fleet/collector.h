#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "fleet/broker.h"
#include "fleet/database.h"

namespace fleet {

/**
 * Stores batches all at once or, where one of them is to blame, each for itself, and tells refuse of those that the
 * database refuses. Throws what the database throws.
 */
std::vector<Confirmation> storeAll(Database& database, const std::vector<Batch>& batches,
                                   const std::function<void(const Batch& batch, const std::string& reason)>& refuse);

/**
 * Brings what cameras send into the database, and tells them what it has. Holds nothing that is not sent again. One
 * thread.
 */
class Collector {
public:
    /** say: told what happens, a line each. */
    Collector(Broker& broker, Database& database, std::function<void(const std::string&)> say)
        : m_broker(broker), m_database(database), m_say(std::move(say)) {}

    /** Waits up to so long for something to come, stores it, and confirms it. Throws what broker and database throw. */
    void step(std::chrono::milliseconds most);

private:
    void refuse(const std::string& prefix, const std::string& reason);

    Broker& m_broker;
    Database& m_database;
    const std::function<void(const std::string&)> m_say;
    std::set<std::string> m_refused;  // prefixes and reasons that were told, so that each is told once
};

}  // namespace fleet
