#include <gtest/gtest.h>

#include "link_fixture.h"

/* Passwords and certificates: made when the tests run, and held to by a real broker. */

namespace {

constexpr const char* kPassword = "s3cret word";

class MqttLogon : public LinkTest {
protected:
    void SetUp() override {
        LinkTest::SetUp();
        if (!IsSkipped()) {
            prepare();
        }
    }

    virtual void prepare() = 0;

    std::string path(const std::string& name) const { return m_folder.path() / name; }

    void run(const std::vector<std::string>& command) const {
        const ProgramResult result = runProgram(command, m_folder.path());
        ASSERT_EQ(result.status, 0) << result.err;
    }

    /** Whether an event arrives: the broker says so by completing the delivery before the end. */
    void expectDelivery() {
        m_link->send("number", "1", false);
        m_link->end();
        m_link.reset();
        EXPECT_EQ(said(), Lines{"mqtt: connected to " + address()});
    }
};

class MqttPassword : public MqttLogon {
protected:
    void prepare() override {
        if (std::string(MOSQUITTO_PASSWD_PROGRAM).empty()) {
            GTEST_SKIP() << "mosquitto_passwd is not installed";
        }
        run({MOSQUITTO_PASSWD_PROGRAM, "-c", "-b", path("users"), "camera", kPassword});
        m_broker->configure("allow_anonymous false\npassword_file " + path("users") + "\n");
        m_broker->start();
    }

    void logOn(const std::string& user, const std::string& passwordFile) {
        link([&](auto& settings) {
            settings.broker.user = user;
            settings.broker.passwordFile = passwordFile;
            settings.farewell = std::chrono::seconds(3);
        });
    }
};

TEST_F(MqttPassword, IsTheFirstLineOfItsFile) {
    for (const char* ending : {"", "\n", "\r\n", "\nmore\n"}) {
        writeFile(path("password"), kPassword + std::string(ending));
        m_said.clear();
        logOn("camera", path("password"));
        expectDelivery();
    }
}

TEST_F(MqttPassword, ThatIsWrongIsToldWithoutIt) {
    writeFile(path("password"), "wrong word\n");
    logOn("camera", path("password"));
    ASSERT_TRUE(waitUntil([&] { return !said().empty(); }));
    EXPECT_EQ(said(), Lines{"mqtt: " + address() + ": Connection Refused: not authorised.; trying again"});
    // What was wrong is put right while it runs.
    writeFile(path("password"), std::string(kPassword) + "\n");
    m_link->send("number", "1", false);
    m_link->end();
    EXPECT_EQ(said().back(), "mqtt: connected to " + address());
    EXPECT_FALSE(isSaid("word"));
}

TEST_F(MqttPassword, ThatCannotBeReadIsToldByItsFile) {
    logOn("camera", path("missing"));
    ASSERT_TRUE(waitUntil([&] { return !said().empty(); }));
    EXPECT_EQ(said(),
              Lines{"mqtt: " + address() + ": cannot read a password from " + path("missing") + "; trying again"});
}

class MqttTls : public MqttLogon {
protected:
    void prepare() override {
        if (std::string(OPENSSL_PROGRAM).empty()) {
            GTEST_SKIP() << "openssl is not installed";
        }
        makeAuthority("ca");
        makeAuthority("other");
        writeFile(path("names"), "subjectAltName=IP:127.0.0.1\n");
        makeCertificate("server");
        makeCertificate("client");
    }

    void makeAuthority(const std::string& name) const {
        run({OPENSSL_PROGRAM, "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-subj", "/CN=" + name, "-days", "2", "-keyout", path(name + ".key"), "-out", path(name + ".pem")});
    }

    void makeCertificate(const std::string& name) const {
        run({OPENSSL_PROGRAM, "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
             "/CN=" + name, "-keyout", path(name + ".key"), "-out", path(name + ".csr")});
        run({OPENSSL_PROGRAM, "x509", "-req", "-in", path(name + ".csr"), "-CA", path("ca.pem"), "-CAkey",
             path("ca.key"), "-CAcreateserial", "-extfile", path("names"), "-days", "2", "-out", path(name + ".pem")});
    }

    void startBroker(const std::string& more = "") const {
        m_broker->configure("allow_anonymous true\ncafile " + path("ca.pem") + "\ncertfile " + path("server.pem") +
                            "\nkeyfile " + path("server.key") + "\n" + more);
        const_cast<Broker&>(*m_broker).start();
    }

    void linkWith(const std::string& authority, const std::string& certificate = "") {
        link([&](auto& settings) {
            settings.broker.caFile = path(authority);
            if (!certificate.empty()) {
                settings.broker.certFile = path(certificate + ".pem");
                settings.broker.keyFile = path(certificate + ".key");
            }
            settings.farewell = std::chrono::seconds(3);
        });
    }

    void expectLoss(const std::string& reason) {
        ASSERT_TRUE(waitUntil([&] { return !said().empty(); }));
        EXPECT_NE(said().front().find(reason), std::string::npos) << said().front();
        EXPECT_FALSE(isSaid("connected to"));
    }
};

TEST_F(MqttTls, DeliversToABrokerThatTheAuthorityHasSigned) {
    startBroker();
    linkWith("ca.pem");
    expectDelivery();
}

TEST_F(MqttTls, RefusesABrokerOfAnotherAuthority) {
    startBroker();
    linkWith("other.pem");
    expectLoss("certificate verify failed");
}

TEST_F(MqttTls, RefusesABrokerOfAnotherName) {
    writeFile(path("names"), "subjectAltName=DNS:elsewhere.example\n");
    makeCertificate("server");
    startBroker();
    linkWith("ca.pem");
    expectLoss("certificate verify failed");
}

TEST_F(MqttTls, ShowsTheCamerasOwnCertificate) {
    startBroker("require_certificate true\n");
    linkWith("ca.pem", "client");
    expectDelivery();
}

TEST_F(MqttTls, NamesTheFilesThatAreOfNoUse) {
    linkWith("missing.pem", "client");
    expectLoss("cannot use " + path("missing.pem") + ", " + path("client.pem") + " and " + path("client.key"));
}

}  // namespace
