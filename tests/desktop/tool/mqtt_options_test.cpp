#include <gtest/gtest.h>
#include <stdexcept>

#include "desktop/config/desktop_config.h"
#include "desktop/config/mqtt_config.h"
#include "program.h"
#include "test_folder.h"
#include "this_build.h"

namespace {

using Lines = std::vector<std::string>;

// --- The address -----------------------------------------------------------------------------------------------------

struct AddressCase {
    const char* text;
    const char* host;
    int port;
    const char* prefix;
};

class MqttAddress : public testing::TestWithParam<AddressCase> {};

TEST_P(MqttAddress, IsRead) {
    const desktop::MqttAddress address = desktop::parseMqttAddress(GetParam().text);
    EXPECT_EQ(address.host, GetParam().host);
    EXPECT_EQ(address.port, GetParam().port);
    EXPECT_EQ(address.prefix, GetParam().prefix);
}

INSTANTIATE_TEST_SUITE_P(Table, MqttAddress,
                         testing::Values(AddressCase{"broker:1883", "broker", 1883, "ostrel_senvo"},
                                         AddressCase{"192.0.2.7:1/gate", "192.0.2.7", 1, "gate"},
                                         AddressCase{"b.example:65535/site/gate-1_a.b", "b.example", 65535,
                                                     "site/gate-1_a.b"},
                                         AddressCase{"[::1]:1883/gate", "::1", 1883, "gate"},
                                         AddressCase{"[2001:db8::7]:8883", "2001:db8::7", 8883, "ostrel_senvo"}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

struct BadAddressCase {
    const char* text;
    const char* error;
};

class BadMqttAddress : public testing::TestWithParam<BadAddressCase> {};

TEST_P(BadMqttAddress, IsRefusedWithWhatWasExpected) {
    std::string error = "nothing";
    try {
        desktop::parseMqttAddress(GetParam().text);
    } catch (const std::runtime_error& thrown) {
        error = thrown.what();
    }
    EXPECT_EQ(error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadMqttAddress,
    testing::Values(BadAddressCase{"", "expected HOST:PORT[/prefix], got \"\""},
                    BadAddressCase{"broker", "expected HOST:PORT[/prefix], got \"broker\""},
                    BadAddressCase{"broker/gate", "expected HOST:PORT[/prefix], got \"broker/gate\""},
                    BadAddressCase{":1883", "expected a host before the port, got \":1883\""},
                    BadAddressCase{"a b:1883", "expected a host before the port, got \"a b:1883\""},
                    BadAddressCase{"[]:1883", "expected an IPv6 address in the brackets, got \"\""},
                    BadAddressCase{"[broker]:1883", "expected an IPv6 address in the brackets, got \"broker\""},
                    BadAddressCase{"[::1:1883",
                                   "expected HOST:PORT[/prefix], an IPv6 address in brackets as in [::1]:1883, got "
                                   "\"[::1:1883\""},
                    BadAddressCase{"::1:1883",
                                   "expected HOST:PORT[/prefix], an IPv6 address in brackets as in [::1]:1883, got "
                                   "\"::1:1883\""},
                    BadAddressCase{"broker:", "expected a port from 1 to 65535, got \"\""},
                    BadAddressCase{"broker:0", "expected a port from 1 to 65535, got \"0\""},
                    BadAddressCase{"broker:70000", "expected a port from 1 to 65535, got \"70000\""},
                    BadAddressCase{"broker:99999999999", "expected a port from 1 to 65535, got \"99999999999\""},
                    BadAddressCase{"broker:-1", "expected a port from 1 to 65535, got \"-1\""},
                    BadAddressCase{"broker:18x", "expected a port from 1 to 65535, got \"18x\""},
                    BadAddressCase{"mqtt://broker:1883", "expected a port from 1 to 65535, got \"\""},
                    BadAddressCase{"user:secret@broker:1883",
                                   "expected HOST:PORT[/prefix], got an address with a user in it"},
                    BadAddressCase{"broker:1883/",
                                   "expected a prefix of letters, digits, '-', '_' and '.', with single slashes "
                                   "between its levels, got \"\""},
                    BadAddressCase{"broker:1883/a/#",
                                   "expected a prefix of letters, digits, '-', '_' and '.', with single slashes "
                                   "between its levels, got \"a/#\""},
                    BadAddressCase{"broker:1883/+",
                                   "expected a prefix of letters, digits, '-', '_' and '.', with single slashes "
                                   "between its levels, got \"+\""},
                    BadAddressCase{"broker:1883/a//b",
                                   "expected a prefix of letters, digits, '-', '_' and '.', with single slashes "
                                   "between its levels, got \"a//b\""},
                    BadAddressCase{"broker:1883/a/",
                                   "expected a prefix of letters, digits, '-', '_' and '.', with single slashes "
                                   "between its levels, got \"a/\""},
                    BadAddressCase{"broker:1883/$SYS",
                                   "expected a prefix of letters, digits, '-', '_' and '.', with single slashes "
                                   "between its levels, got \"$SYS\""}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST(MqttAddressBelow, HasOneMoreLevel) {
    EXPECT_EQ(desktop::mqttAddressBelow("", "follower-1"), "");
    EXPECT_EQ(desktop::mqttAddressBelow("[::1]:1883", "follower-1"), "[::1]:1883/ostrel_senvo/follower-1");
    EXPECT_EQ(desktop::mqttAddressBelow("broker:1883/site/gate", "follower-1"), "broker:1883/site/gate/follower-1");
}

// --- The command line ------------------------------------------------------------------------------------------------

class MqttOptions : public testing::Test {
protected:
    /** Runs a copy that stands alone: it lays everything out and then finds no application to start. */
    ProgramResult run(const Lines& options) const {
        const std::string program = m_folder.path() / "senvo-camera";
        std::filesystem::copy_file(this_build::program("senvo-camera"), program,
                                   std::filesystem::copy_options::overwrite_existing);
        Lines command = {program,  "run", "--video", "scene:plaza",
                         "--port", "0",   "--state", m_folder.path() / "camera"};
        command.insert(command.end(), options.begin(), options.end());
        const std::string package = this_build::folder() / "bin/package";
        return runProgram(command, m_folder.path(), {"SENVO_PACKAGE=" + package});
    }

    TestFolder m_folder;
};

TEST_F(MqttOptions, ReachTheServicesWithWholePaths) {
    for (const char* name : {"password", "ca.pem", "cert.pem", "key.pem"}) {
        writeFile(m_folder.path() / name, "s3cret");
    }
    const ProgramResult result =
        run({"--mqtt", "[::1]:8883/gate", "--mqtt-user", "camera", "--mqtt-password-file", "password", "--mqtt-cafile",
             "ca.pem", "--mqtt-cert", "cert.pem", "--mqtt-key", "key.pem"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("cannot execute"), std::string::npos) << result.err;
    const std::string written = readFile(m_folder.path() / "camera/desktop.json");
    EXPECT_EQ(written.find("s3cret"), std::string::npos) << "the password stays in its file";
    const desktop::MqttConfig config = desktop::parseDesktopConfig(written).mqtt;
    EXPECT_EQ(config.address, "[::1]:8883/gate");
    EXPECT_EQ(config.user, "camera");
    EXPECT_EQ(config.passwordFile, (m_folder.path() / "password").string());
    EXPECT_EQ(config.caFile, (m_folder.path() / "ca.pem").string());
    EXPECT_EQ(config.certFile, (m_folder.path() / "cert.pem").string());
    EXPECT_EQ(config.keyFile, (m_folder.path() / "key.pem").string());
}

TEST_F(MqttOptions, ThatAreBadEndWithTwo) {
    struct Case {
        Lines options;
        const char* said;
    };
    const Case cases[] = {
        {{"--mqtt", "broker"}, "--mqtt: expected HOST:PORT[/prefix], got \"broker\""},
        {{"--mqtt", "broker:0"}, "--mqtt: expected a port from 1 to 65535, got \"0\""},
        {{"--mqtt-user", "camera"}, "--mqtt-user requires --mqtt"},
        {{"--mqtt", "broker:1", "--mqtt-password-file", "here"}, "--mqtt-password-file requires --mqtt-user"},
        {{"--mqtt", "broker:1", "--mqtt-user", "camera", "--mqtt-password-file", "missing"},
         "--mqtt-password-file: expected a file that can be read, got missing"},
        {{"--mqtt", "broker:1", "--mqtt-cafile", "."}, "--mqtt-cafile: expected a file that can be read, got ."},
        {{"--mqtt", "broker:1", "--mqtt-cafile", "here", "--mqtt-cert", "here"}, "--mqtt-cert requires --mqtt-key"},
        {{"--mqtt", "broker:1", "--mqtt-cafile", "here", "--mqtt-key", "here"}, "--mqtt-key requires --mqtt-cert"},
        {{"--mqtt", "broker:1", "--mqtt-cert", "here", "--mqtt-key", "here"}, "--mqtt-cert requires --mqtt-cafile"}};
    writeFile(m_folder.path() / "here", "text");
    for (const Case& bad : cases) {
        const ProgramResult result = run(bad.options);
        EXPECT_EQ(result.status, 2) << bad.said;
        EXPECT_NE(result.err.find(bad.said), std::string::npos) << bad.said << ": " << result.err;
    }
}

}  // namespace
