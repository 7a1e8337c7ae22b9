#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "failing_power.h"
#include "ledger/index.h"

/* What a disk that takes its time keeps waiting, and what it does not. */

namespace ledger {
namespace {

/** A disk on which one operation of a kind takes until the test lets it go. */
class StuckDisk : public FailingPower {
public:
    StuckDisk() : FailingPower(1) {}

    /** The next such operation is stuck; to be called while none is under way. */
    void stick(const std::string& operation) {
        m_operation = operation;
        m_reached = std::promise<void>();
        m_released = std::promise<void>();
    }
    void waitUntilStuck() { m_reached.get_future().wait(); }
    void release() { m_released.set_value(); }

    bool sync(const std::string& name) override {
        pass("sync");
        return FailingPower::sync(name);
    }
    bool replace(const std::string& name, std::string_view content) override {
        pass("replace");
        return FailingPower::replace(name, content);
    }
    bool remove(const std::string& name) override {
        pass("remove");
        return FailingPower::remove(name);
    }
    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        indexReads += name.ends_with(".index") ? 1 : 0;
        pass("read");
        return FailingPower::read(name, from, most);
    }

    int indexReads = 0;

private:
    void pass(const char* operation) {
        if (m_operation == operation) {
            m_operation.clear();
            m_reached.set_value();
            m_released.get_future().wait();
        }
    }

    std::string m_operation;
    std::promise<void> m_reached;
    std::promise<void> m_released;
};

class SlowDisk : public testing::Test {
protected:
    std::unique_ptr<Ledger> open(int64_t mostBytes) {
        auto book = std::make_unique<Ledger>(
            m_disk, LedgerOptions{mostBytes, [this] { return m_now; }, [] { return std::string("epoch"); }});
        book->open();
        return book;
    }
    /** Lines of a kind on so many days. */
    void fill(Ledger& book, int days, const char* kind) {
        for (int line = 0; line < 100 * days; ++line) {
            m_now = {*utcOf("2026-11-01T00:00:00.000Z") + int64_t{86'400'000} * (line / 100), "", 0};
            book.append(kind, {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}});
        }
    }

    StuckDisk m_disk;
    Moment m_now;
};

TEST_F(SlowDisk, KeepsNoLineWaiting) {
    for (const auto& [operation, kind] :
         {std::pair{"sync", "object"}, std::pair{"replace", "object"}, std::pair{"remove", "crossing"}}) {
        SCOPED_TRACE(operation);
        m_disk = StuckDisk();
        const std::unique_ptr<Ledger> book = open(10'000);
        fill(*book, 3, kind);
        m_disk.stick(operation);
        std::thread keeper([&book = *book] { book.keep(); });
        m_disk.waitUntilStuck();
        const int64_t before = book->end().seq;
        EXPECT_TRUE(book->append("watched", {{"minute", 1}}));
        EXPECT_EQ(book->end().seq, before + 1);
        EXPECT_NE(book->lines(before + 1, before + 1, 1000).find(R"("kind":"watched","minute":1)"), std::string::npos);
        m_disk.release();
        keeper.join();
    }
}

TEST_F(SlowDisk, KeepsNobodyWaitingWhoOnlyWantsWhatIsKnown) {
    const std::unique_ptr<Ledger> book = open(1 << 20);
    fill(*book, 1, "crossing");
    Index index(m_disk, *book);
    m_disk.stick("read");
    std::thread reader([&] { index.update(1 << 20); });
    m_disk.waitUntilStuck();
    EXPECT_FALSE(index.updateUnlessBusy(1 << 20));
    EXPECT_TRUE(index.quarters(0, 1'000'000'000).empty());
    m_disk.release();
    reader.join();
    EXPECT_TRUE(index.updateUnlessBusy(1 << 20));
    EXPECT_EQ(index.quarters(0, 1'000'000'000).size(), 1U);
}

TEST_F(SlowDisk, IsReadInPiecesAlsoWhereTheIndexWasSaved) {
    const std::unique_ptr<Ledger> book = open(1 << 20);
    fill(*book, 6, "crossing");
    Index first(m_disk, *book);
    while (!first.update(1 << 20)) {
    }
    first.save();
    Index again(m_disk, *book);
    for (int piece = 1; piece <= 5; ++piece) {
        m_disk.indexReads = 0;
        EXPECT_FALSE(again.update(1)) << piece;
        EXPECT_EQ(m_disk.indexReads, 1) << piece;
    }
}

}  // namespace
}  // namespace ledger
