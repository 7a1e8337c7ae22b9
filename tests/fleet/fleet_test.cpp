#include <gtest/gtest.h>
#include <memory>

#include "broker.h"
#include "cluster.h"
#include "desktop/mqtt/line_link.h"
#include "line_folder.h"
#include "this_build.h"

namespace {

/** A camera that writes its ledger and sends it, without the application. */
class SimulatedCamera {
public:
    SimulatedCamera(std::string name, int port) : m_name(std::move(name)), m_port(port) { restart(); }

    /** Adds lines to the ledger, in a file of their own. */
    void see(int count) {
        const int64_t first = m_lines + 1;
        std::string text;
        for (int i = 0; i < count; ++i) {
            const std::string seq = std::to_string(++m_lines);
            text += R"({"seq":)" + seq + R"(,"epoch":"life of )" + m_name +
                    R"(","t":"2026-11-22T05:35:01.420Z","kind":"crossing","entrance":1,"direction":")" +
                    (i % 3 == 0 ? "out" : "in") + R"(","class":"Person","object":)" + seq + R"(,"occupancy":4})" + "\n";
        }
        m_folder.append(first, text);
        m_text += text;
    }

    void restart() {
        m_link.reset();
        desktop::LineLinkSettings settings;
        settings.broker.address = "127.0.0.1:" + std::to_string(m_port) + "/" + m_name;
        settings.clientId = "camera" + m_name;
        settings.lines.folder = m_folder.path();
        settings.lines.positionFile = (m_state.path() / "confirmed.json").string();
        settings.lines.batchBytes = 4000;
        settings.lines.windowBytes = 20000;
        settings.lines.resendMillis = 300;
        settings.lines.steadyMillis = [] {
            return std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::steady_clock::now().time_since_epoch())
                .count();
        };
        settings.lines.random = [](int64_t) { return 0; };
        settings.lines.say = [](const std::string&) {};
        settings.firstRetry = settings.longestRetry = std::chrono::milliseconds(20);
        settings.pause = std::chrono::milliseconds(20);
        m_link = std::make_unique<desktop::LineLink>(settings);
    }

    bool isConfirmed() const {
        return readFile(m_state.path() / "confirmed.json").ends_with(":" + std::to_string(m_lines) + "}\n");
    }

    const std::string& name() const { return m_name; }
    const std::string& text() const { return m_text; }

private:
    const std::string m_name;
    const int m_port;
    LineFolder m_folder;
    TestFolder m_state;
    int64_t m_lines = 0;
    std::string m_text;
    std::unique_ptr<desktop::LineLink> m_link;
};

class Fleet : public testing::Test {
protected:
    void SetUp() override {
        if (!Cluster::isInstalled() || !Broker::isInstalled()) {
            GTEST_SKIP() << "PostgreSQL 15 or mosquitto is not installed";
        }
        m_cluster.emplace();
        m_broker.emplace(m_folder.path(), "allow_anonymous true\npersistence false\n");
        m_broker->start();
    }

    /** A collector in a folder of its own. */
    struct Collector {
        TestFolder folder;
        std::optional<Child> process;
    };

    void start(Collector& collector) {
        collector.process.emplace(
            startProgram({this_build::program("senvo-collect"), "--broker",
                          "127.0.0.1:" + std::to_string(m_broker->port()), "--database", m_cluster->address()},
                         collector.folder.path()));
    }

    static bool said(const Collector& collector, const std::string& part) {
        return readFile(collector.folder.path() / "err").find(part) != std::string::npos;
    }

    std::string linesOf(const std::string& camera) const {
        return m_cluster->ask(
            "select string_agg(body::text, E'\\n' order by seq) from line join camera on id = camera "
            "where prefix = '" +
            camera + "'");
    }

    TestFolder m_folder;
    std::optional<Cluster> m_cluster;
    std::optional<Broker> m_broker;
};

TEST_F(Fleet, EndsUpEqualHoweverOftenItsPartsAreKilled) {
    Collector collectors[2];
    start(collectors[0]);
    start(collectors[1]);
    std::vector<std::unique_ptr<SimulatedCamera>> cameras;
    for (const char* name : {"site/a", "site/b", "c", "d/e/f", "g"}) {
        cameras.push_back(std::make_unique<SimulatedCamera>(name, m_broker->port()));
    }
    for (int round = 0; round < 4; ++round) {
        for (const auto& camera : cameras) {
            camera->see(200);
        }
        // Something of the round has come, and the rest is on its way.
        ASSERT_TRUE(waitUntil([&] {
            return std::atoi(m_cluster->ask("select count(*) from crossing").c_str()) > round * 1000;
        })) << readFile(collectors[0].folder.path() / "err");
        kill(collectors[round % 2].process->pid(), SIGKILL);
        m_broker->stop(SIGKILL);
        if (round == 2) {
            m_cluster->stop(SIGKILL);
            m_cluster->start();
        }
        cameras[static_cast<size_t>(round)]->restart();
        m_broker->start();
        start(collectors[round % 2]);
    }
    for (const auto& camera : cameras) {
        ASSERT_TRUE(waitUntil([&] { return camera->isConfirmed(); })) << camera->name();
        EXPECT_TRUE(linesOf(camera->name()) == camera->text()) << camera->name();
    }
    EXPECT_EQ(m_cluster->ask("select count(*), sum((direction = 'in')::int) from crossing"), "4000|2660\n");
}

TEST_F(Fleet, RefusesGarbageAndServesEverybodyElse) {
    Collector collector;
    start(collector);
    ASSERT_TRUE(waitUntil([&] { return said(collector, "collecting from"); }));
    SimulatedCamera camera("good", m_broker->port());
    desktop::MqttClient client({}, "bad", desktop::MqttSession::Wiped, nullptr);
    client.connect({"127.0.0.1", static_cast<uint16_t>(m_broker->port()), ""});
    while (!client.isAccepted()) {
        client.step(-1, kPatience);
    }
    const std::string wrong =
        "{\"epoch\":\"a\",\"after\":0}\n{\"seq\":1,\"epoch\":\"a\",\"t\":\"2026-11-22T05:35:01.420Z\","
        "\"kind\":\"crossing\"}\n";
    int waiting = 0;
    for (const std::string& payload : {std::string("garbage"), std::string(10 << 20, 'x'), wrong}) {
        client.publish({"bad/ledger", payload, false}, desktop::MqttClient::kAtLeastOnce);
        ++waiting;
    }
    camera.see(3);
    while (waiting > 0) {
        client.step(-1, kPatience);
        waiting -= static_cast<int>(client.takeDelivered().size());
    }
    for (const char* part :
         {"bad/ledger: refused: expected each line to have its end, got \"garbage\"",
          "bad/ledger: refused: expected at most 2097152 bytes, got 10485760", "bad: refused: null value in column"}) {
        EXPECT_TRUE(waitUntil([&] { return said(collector, part); })) << part;
    }
    ASSERT_TRUE(waitUntil([&] { return camera.isConfirmed(); }));
    EXPECT_EQ(linesOf("good"), camera.text());
    EXPECT_EQ(linesOf("bad"), "\n");
}

TEST_F(Fleet, RefusesADatabaseFromTheFuture) {
    m_cluster->ask(
        "create table migration (number integer primary key, name text, applied timestamptz); "
        "insert into migration values (999, 'future', now())");
    Collector collector;
    start(collector);
    EXPECT_TRUE(waitUntil([&] { return said(collector, "the database is newer than this program"); }));
    kill(collector.process->pid(), SIGTERM);
    EXPECT_EQ(collector.process->wait(60000), 0);
}

}  // namespace
