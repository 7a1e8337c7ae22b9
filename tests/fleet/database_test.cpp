#include "fleet/database.h"

#include <gtest/gtest.h>

#include "cluster.h"
#include "fleet/collector.h"

namespace {

using namespace std::string_literals;

std::string line(int64_t seq, const std::string& kind, const std::string& more,
                 const std::string& time = R"("t":"2026-11-22T05:35:01.420Z")", const std::string& epoch = "a") {
    return R"({"seq":)" + std::to_string(seq) + R"(,"epoch":")" + epoch + "\"," + time + R"(,"kind":")" + kind + "\"" +
           more + "}\n";
}

std::string crossing(int64_t seq, const std::string& direction = "in",
                     const std::string& time = R"("t":"2026-11-22T05:35:01.420Z")") {
    return line(
        seq, "crossing",
        R"(,"entrance":1,"direction":")" + direction +
            R"(","class":"Person","object":3,"before":[1,2],"after":[3,4],"size":[9,9],"followed":1.5,"occupancy":2)",
        time);
}

fleet::Batch batch(int64_t after, const std::string& lines, const std::string& topic = "gate/ledger",
                   const std::string& epoch = "a") {
    return fleet::readBatch(topic, R"({"epoch":")" + epoch + R"(","after":)" + std::to_string(after) + "}\n" + lines);
}

/** What is confirmed: "prefix epoch through;" each. */
std::string store(fleet::Database& database, const std::vector<fleet::Batch>& batches) {
    std::string text;
    for (const fleet::Confirmation& one : database.store(batches)) {
        text += one.prefix + " " + one.epoch + " " + std::to_string(one.through) + ";";
    }
    return text;
}

class FleetDatabase : public testing::Test {
protected:
    void SetUp() override {
        if (!Cluster::isInstalled()) {
            GTEST_SKIP() << "PostgreSQL 15 is not installed";
        }
        m_cluster.emplace();
    }

    std::optional<Cluster> m_cluster;
};

TEST_F(FleetDatabase, ConfirmsWhatItHasWithoutAGap) {
    fleet::Database database(m_cluster->address());
    EXPECT_EQ(store(database, {batch(0, crossing(1) + crossing(2))}), "gate a 2;");
    EXPECT_EQ(store(database, {batch(0, crossing(1) + crossing(2))}), "gate a 2;") << "twice is once";
    EXPECT_EQ(m_cluster->ask("select count(*) from line"), "2\n");
    EXPECT_EQ(m_cluster->ask("select count(*) from crossing"), "2\n");
    EXPECT_EQ(store(database, {batch(4, crossing(5))}), "gate a 2;") << "3 and 4 were lost on the way";
    EXPECT_EQ(store(database, {batch(5, crossing(8), "gate/recent")}), "") << "outside the order";
    EXPECT_EQ(m_cluster->ask("select count(*) from line"), "4\n");
    EXPECT_EQ(store(database, {batch(2, crossing(4))}), "gate a 5;") << "the camera has no 3";
    EXPECT_EQ(store(database, {batch(9, line(10, "cut", R"(,"removed":"all","from":6,"through":7)"))}), "gate a 7;");
    EXPECT_EQ(store(database, {batch(7, crossing(8) + crossing(9))}), "gate a 10;");
    EXPECT_EQ(
        store(database,
              {batch(0, line(11, "stop", R"(,"reason":"x","occupancy":0)", R"("t":"2026-11-22T05:35:01.420Z")", "b"),
                     "gate/ledger", "b"),
               batch(0, crossing(1), "site/other/ledger")}),
        "gate b 11;site/other a 1;");
    EXPECT_EQ(m_cluster->ask("select prefix from camera order by prefix"), "gate\nsite/other\n");
}

TEST_F(FleetDatabase, HasTablesForWhatIsAsked) {
    fleet::Database database(m_cluster->address());
    m_cluster->ask("insert into camera (prefix, site, zone) values ('gate', 'Berlin', 'Europe/Berlin')");
    const std::string lines =
        crossing(1) + crossing(2, "out") + crossing(3, "in", R"("t":"2026-11-21T23:30:00.000Z")") +
        line(4, "watched",
             R"(,"minute":"2026-11-22T05:35:00.000Z","seconds":45.0,"cycles":450,"slow":1,"failed":2,"occupancy":2)") +
        line(
            5, "period",
            R"(,"begin":"2026-11-22T05:30:00.000Z","end":"2026-11-22T05:45:00.000Z","offset":0,"coverage":0.5,"tallies":{"x":1})") +
        line(6, "alert", R"(,"alert":"area 1","active":true,"by_hand":false)") +
        line(7, "object", R"(,"remark":"a\\b\tc ü")");
    EXPECT_EQ(store(database, {batch(0, lines)}), "gate a 7;");
    EXPECT_EQ(m_cluster->ask("select string_agg(body::text, E'\\n' order by seq) from line"), lines);
    EXPECT_EQ(m_cluster->ask("select entrance, class, local_hour, ins, outs, round(coverage::numeric, 4) from hourly "
                             "order by hour"),
              "1|Person|2026-11-22 00:00:00|1|0|0.0000\n1|Person|2026-11-22 06:00:00|1|1|0.0125\n");
    EXPECT_EQ(m_cluster->ask("select site, camera, day, ins, outs, round(coverage::numeric * 86400) from daily"),
              "Berlin|gate|2026-11-22|2|1|45\n");
    EXPECT_EQ(m_cluster->ask("select coverage, tallies from period"), "0.5|{\"x\":1}\n");
    EXPECT_EQ(m_cluster->ask("select alert, active, by_hand from alert"), "area 1|t|f\n");
    EXPECT_EQ(m_cluster->ask("select distinct tableoid::regclass from line"), "line_2026_11\n");
    EXPECT_EQ(m_cluster->ask("update camera set zone = 'Nowhere'").substr(0, 6), "error:");
    EXPECT_EQ(m_cluster->ask("select c.relname, a.attname from pg_class c join pg_attribute a on a.attrelid = c.oid "
                             "where c.relnamespace = 'public'::regnamespace and c.relkind in ('r', 'p', 'v') "
                             "and c.relname !~ '^line_' and a.attnum > 0 and col_description(c.oid, a.attnum) is null"),
              "")
        << "columns without a comment";
    EXPECT_EQ(m_cluster->ask("set role senvo_read; select count(*) from hourly"), "2\n");
    EXPECT_EQ(m_cluster->ask("set role senvo_read; delete from camera").substr(0, 6), "error:");
}

TEST_F(FleetDatabase, DatesLinesFromBeforeTheClockWasKnown) {
    const std::string undated = R"("boot":"x","mono":)";
    const std::string clock =
        line(3, "clock", R"(,"boot":"x","mono":60000,"synchronised":true)", R"("t":"2026-11-22T10:01:00.000Z")");
    fleet::Database database(m_cluster->address());
    EXPECT_EQ(store(database, {batch(0, crossing(1, "in", undated + "1000"))}), "gate a 1;");
    EXPECT_EQ(m_cluster->ask("select count(*) from crossing where t is null"), "1\n");
    EXPECT_EQ(store(database, {batch(2, clock)}), "gate a 1;");
    EXPECT_EQ(store(database, {batch(1, crossing(2, "in", undated + "2500"))}), "gate a 3;") << "behind its clock";
    EXPECT_EQ(m_cluster->ask("select to_char(t at time zone 'UTC', 'HH24:MI:SS.MS') from crossing order by seq"),
              "10:00:01.000\n10:00:02.500\n");
}

TEST_F(FleetDatabase, RefusesWhatNoTableTakesAndStaysUsable) {
    fleet::Database database(m_cluster->address());
    EXPECT_THROW(store(database, {batch(0, line(1, "crossing", ""))}), fleet::Refusal);
    EXPECT_THROW(store(database, {batch(0, line(1, "stop", R"(,"x":nothing)"))}), fleet::Refusal);
    EXPECT_THROW(store(database, {batch(0, line(1, "stop", ",\"x\":\"\xff\""))}), fleet::Refusal);
    EXPECT_EQ(store(database, {batch(0, crossing(1))}), "gate a 1;");
    // A clock that is wrong by years has its lines, too, and they move where a table is made for them.
    EXPECT_EQ(store(database, {batch(1, crossing(2, "in", R"("t":"2050-01-02T00:00:00.000Z")"))}), "gate a 2;");
    EXPECT_EQ(m_cluster->ask("select tableoid::regclass from line where seq = 2"), "line_other\n");
    EXPECT_EQ(m_cluster->ask("select make_month('2050-01-01')"), "\n");
    EXPECT_EQ(m_cluster->ask("select tableoid::regclass from line where seq = 2"), "line_2050_01\n");
    EXPECT_EQ(m_cluster->ask("select drop_lines_before('2050-01-01Z')"), "\n");
    EXPECT_EQ(m_cluster->ask("select seq from line"), "2\n");
}

TEST_F(FleetDatabase, StoresWhatCameWithABatchThatIsRefused) {
    fleet::Database database(m_cluster->address());
    std::string refused;
    const auto confirmed = fleet::storeAll(
        database,
        {batch(0, crossing(1), "one/ledger"), batch(0, line(1, "crossing", ""), "bad/ledger"),
         batch(0, crossing(1), "two/ledger")},
        [&](const fleet::Batch& one, const std::string& reason) { refused += one.prefix + ": " + reason; });
    ASSERT_EQ(confirmed.size(), 2U);
    EXPECT_EQ(confirmed[0].prefix + " " + confirmed[1].prefix, "one two");
    EXPECT_EQ(refused.substr(0, 36), "bad: null value in column \"entrance\"");
    EXPECT_EQ(m_cluster->ask("select prefix from camera order by 1"), "one\ntwo\n");
}

TEST_F(FleetDatabase, RefusesOneThatIsNewerThanItself) {
    fleet::Database(m_cluster->address()).store({batch(0, crossing(1))});
    const fleet::Database again(m_cluster->address());
    m_cluster->ask("insert into migration (number, name) values (999, 'future')");
    try {
        const fleet::Database database(m_cluster->address());
        ADD_FAILURE() << "it was taken";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("is newer than this program: expected migrations up to "),
                  std::string::npos)
            << error.what();
        EXPECT_NE(std::string(error.what()).find("it has 999"), std::string::npos) << error.what();
    }
}

}  // namespace
