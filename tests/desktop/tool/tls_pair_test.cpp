#include "desktop/webserver/tls_pair.h"

#include <gtest/gtest.h>

#include "program.h"
#include "test_folder.h"

namespace {

TEST(TlsPair, OfACamerasOwnStaysAsLongAsItIsOne) {
    const TestFolder folder;
    const desktop::TlsPair pair = desktop::ownTlsPair(folder.path(), "127.0.0.1");
    const std::string certificate = readFile(pair.certificate);
    const std::string key = readFile(pair.key);
    desktop::ownTlsPair(folder.path(), "127.0.0.1");
    EXPECT_EQ(readFile(pair.certificate), certificate);
    EXPECT_EQ(readFile(pair.key), key);

    const TestFolder other;
    const std::string othersKey = readFile(desktop::ownTlsPair(other.path(), "127.0.0.1").key);
    const struct {
        const char* label;
        std::string certificate;
        std::string key;
    } cases[] = {{"empty", "", ""},
                 {"a certificate that is cut off", certificate.substr(0, certificate.size() / 2), key},
                 {"a key that is cut off", certificate, key.substr(0, key.size() / 2)},
                 {"another's key", certificate, othersKey}};
    for (const auto& [label, foundCertificate, foundKey] : cases) {
        writeFile(pair.certificate, foundCertificate);
        writeFile(pair.key, foundKey);
        const desktop::TlsPair mended = desktop::ownTlsPair(folder.path(), "127.0.0.1");
        EXPECT_NO_THROW(desktop::givenTlsPair(mended.certificate, mended.key)) << label;
    }
}

}  // namespace
