// The parts of the benchmark kit whose faults would print wrong figures
// without anything failing: percentiles, CPU time read from /proc, the time
// stamps of printed lines, and the table at the end of `make bench`.
#include "BenchKit.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <unistd.h>

TEST(BenchKit, NearestRankPercentiles)
{
    std::vector<double> hundred;
    for (int i = 100; i >= 1; --i)
        hundred.push_back(i);
    const struct
    {
        std::vector<double> values;
        double p, expected;
    } cases[] = {
        { hundred, 50, 50 }, { hundred, 99, 99 }, { hundred, 100, 100 }, { hundred, 0, 1 },
        { { 7 }, 99, 7 },    { { 3, 1, 2 }, 50, 2 }, { { 1, 2, 3, 4 }, 99, 4 }, { {}, 99, 0 },
    };
    for (auto& c : cases)
        EXPECT_EQ(percentile(c.values, c.p), c.expected) << "p" << c.p << " of " << c.values.size();
}

TEST(BenchKit, CpuTicksFromStatLines)
{
    const struct
    {
        const char* line;
        long long ticks;
    } cases[] = {
        { "4242 (avrtest) S 1 4242 4242 34816 4242 4194304 312 0 0 0 17 5 0 0 20 0 3 0", 22 },
        // A name may hold spaces and parentheses of its own.
        { "77 (a) b (c) d) R 1 77 77 0 -1 0 0 0 0 0 1000 234 0 0 20 0 1 0", 1234 },
        { "77 (avrtest) S 1 77 77 0 -1 0 0 0 0 0 9", -1 },
        { "no name here", -1 },
    };
    for (auto& c : cases)
        EXPECT_EQ(statCpuTicks(c.line), c.ticks) << c.line;
    EXPECT_GE(processCpuSeconds(getpid()), 0);
}

TEST(BenchKit, TableLinesKeepTheirFields)
{
    EXPECT_EQ(tableLine({ "latency p99 (ms)", "9.80", "0.10 (bare)", "98.0", "< 1 ms: not met" }),
              "TABLE|latency p99 (ms)|9.80|0.10 (bare)|98.0|< 1 ms: not met");
    EXPECT_EQ(tableLine({ "a|b", "1", "", "-", "-" }), "TABLE|a/b|1||-|-");
    EXPECT_EQ(fixed(8912.46, 0), "8912");
    EXPECT_EQ(fixed(0.756, 2), "0.76");
    EXPECT_EQ(shown(0.4998, 2), 0.5);
    EXPECT_EQ(verdict("< 0.5 %", false), "< 0.5 %: not met");
}

TEST(BenchKit, LinesAreStampedAsTheirEndArrives)
{
    int p[2];
    ASSERT_EQ(pipe(p), 0);
    {
        LineStamps seen(p[0]);
        const auto write = [&](const std::string& s) { ASSERT_EQ(::write(p[1], s.data(), s.size()), (ssize_t) s.size()); };
        const auto before = BenchClock::now();
        write("Button event: 41\r\nButton ev");
        const auto first = seen.waitFor("Button event: 41", 10000);
        ASSERT_TRUE(first);
        EXPECT_GE(*first, before);
        // Half a line is not a line, nor is one already matched.
        EXPECT_FALSE(seen.waitFor("Button ev", 50));
        EXPECT_FALSE(seen.waitFor("Button event: 41", 50));

        const auto middle = BenchClock::now();
        write("ent: 42\nButton event: 41\n");
        const auto second = seen.waitFor("Button event: 42", 10000);
        ASSERT_TRUE(second);
        EXPECT_GE(*second, middle);
        EXPECT_TRUE(seen.waitFor("Button event: 41", 10000));
        EXPECT_EQ(seen.text(), "Button event: 41\r\nButton event: 42\nButton event: 41\n");
    }
    close(p[0]);
    close(p[1]);
}

TEST(BenchKit, TheTableScriptAlignsEveryRow)
{
    const std::string file = testing::TempDir() + "bench-table-" + std::to_string(getpid()) + ".txt";
    std::ofstream(file) << "exchange: 2000 exchanges\n"
                        << tableLine({ "exchanges/s against the limit", "8900", "14000 (blocking C loop)", "0.64",
                                       ">= 0.9: not met" })
                        << "\n"
                        << tableLine({ "idle CPU", "0.75", "-", "-", "< 0.5 %: not met" }) << "\n";
    FILE* out = popen(("'" AVRTEST_SOURCE_DIR "/scripts/bench-table.sh' '" + file + "'").c_str(), "r");
    ASSERT_NE(out, nullptr);
    std::vector<std::string> lines;
    char buf[512];
    while (fgets(buf, sizeof buf, out) != nullptr)
        lines.emplace_back(buf);
    EXPECT_EQ(pclose(out), 0);
    std::remove(file.c_str());

    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0].rfind("== Benchmarks on ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind("| figure ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2].find_first_not_of("|-\n"), std::string::npos) << lines[2];
    EXPECT_NE(lines[3].find("| 14000 (blocking C loop) | 0.64  | >= 0.9: not met  |"), std::string::npos) << lines[3];
    for (size_t i = 2; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].size(), lines[1].size()) << lines[i];
}
