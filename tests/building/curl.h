#pragma once

#include <regex>
#include <string>
#include <vector>

#include "program.h"
#include "test_folder.h"

/** The answer to an HTTP request, as the command curl prints it. */
struct HttpAnswer {
    int status = 0;
    std::string contentType;
    std::string headers;
    std::string body;
};

/** Asks with the command line program curl; more are its options. */
inline HttpAnswer curl(const std::string& url, const std::vector<std::string>& more = {}) {
    const TestFolder folder;
    std::vector<std::string> command = {"/usr/bin/curl",
                                        "-s",
                                        "-S",
                                        "--noproxy",
                                        "*",
                                        "--max-time",
                                        "60",
                                        "-D",
                                        "headers",
                                        "-o",
                                        "body",
                                        "-w",
                                        "%{http_code} %{content_type}"};
    command.insert(command.end(), more.begin(), more.end());
    command.push_back(url);
    const ProgramResult result = runProgram(command, folder.path());
    HttpAnswer answer;
    if (result.out.size() >= 4) {
        answer.status = std::stoi(result.out);
        answer.contentType = result.out.substr(4);
    }
    answer.headers = readFile(folder.path() / "headers");
    answer.body = readFile(folder.path() / "body");
    return answer;
}

/** A camera's web interface, for a user. */
class CameraAccess {
public:
    CameraAccess(std::string address, std::string password)
        : m_address(std::move(address)), m_login("operator:" + std::move(password)) {}

    const std::string& address() const { return m_address; }
    std::string url(const std::string& action) const {
        return "http://" + m_address + "/local/ostrel_senvo/webservices.cgi?action=" + action;
    }
    HttpAnswer ask(const std::string& action, std::vector<std::string> more = {}) const {
        more.insert(more.end(), {"--digest", "-u", m_login});
        return curl(url(action), more);
    }
    HttpAnswer post(const std::string& action, const std::string& body, std::vector<std::string> more = {}) const {
        const TestFolder folder;
        const std::string file = folder.path() / "post";
        writeFile(file, body);
        more.insert(more.end(), {"--data-binary", "@" + file});
        return ask(action, more);
    }
    std::string get(const std::string& action) const { return ask(action).body; }

private:
    std::string m_address;
    std::string m_login;
};
