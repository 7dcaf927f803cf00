#include "zip/JobCutter.h"

#include "TestTree.h"

#include <gtest/gtest.h>

namespace {

std::vector<zip::Entry> entriesOf(const std::vector<std::uint64_t>& sizes) {
    std::vector<zip::Entry> entries(sizes.size());
    for (std::size_t index = 0; index < sizes.size(); ++index)
        entries[index].state.size = static_cast<off_t>(sizes[index]);
    return entries;
}

/// Cuts everything, and checks that the jobs cover it all in order and none is too large.
std::vector<zip::Job> cut(const std::vector<std::uint64_t>& sizes) {
    const auto entries = entriesOf(sizes);
    zip::JobCutter cutter(entries);
    std::vector<zip::Job> jobs;
    std::size_t entry = 0;
    std::uint64_t offset = 0;
    while (const auto job = cutter.next()) {
        EXPECT_EQ(job->firstEntry, entry);
        EXPECT_EQ(job->offset, offset);
        EXPECT_EQ(job->isFirstPiece(), job->isPiece && offset == 0);
        EXPECT_LE(job->size, zip::longestPiece);
        if (job->isPiece) {
            offset += job->size;
            EXPECT_EQ(job->isLastPiece, offset == sizes[entry]);
            offset = job->isLastPiece ? 0 : offset;
            entry += job->isLastPiece ? 1 : 0;
        } else {
            entry += job->entryCount;
        }
        jobs.push_back(*job);
    }
    EXPECT_EQ(entry, sizes.size());
    return jobs;
}

TEST(JobCutter, CutsOnlyFilesLongerThanAPiece) {
    constexpr std::uint64_t much = 100 * zip::longestPiece;
    EXPECT_FALSE(cut({zip::longestPiece, much}).at(0).isPiece);
    const auto two = cut({zip::longestPiece + 2, much});
    EXPECT_TRUE(two.at(0).isPiece);
    EXPECT_EQ(two.at(0).size, two.at(1).size);
    EXPECT_TRUE(two.at(1).isLastPiece);
    EXPECT_EQ(cut({std::uint64_t{5} << 30, much}).size(),
              (std::size_t{5} << 30) / zip::longestPiece + cut({much}).size());
}

TEST(JobCutter, CutsShorterPiecesTowardsTheEnd) {
    const auto jobs = cut({20 * zip::longestPiece});
    EXPECT_EQ(jobs.front().size, zip::longestPiece);
    EXPECT_LE(jobs.back().size, zip::shortestPiece);
    EXPECT_EQ(cut({10, 100000, 400000}).size(), 3U);
    EXPECT_EQ(cut({10, 100000, 200000}).size(), 2U);
}

TEST(JobCutter, PutsSmallEntriesTogetherButNotTooMany) {
    EXPECT_EQ(cut({0, 1, 2, 3, 0}).size(), 1U);
    EXPECT_GT(cut(std::vector<std::uint64_t>(10000, 0)).size(), 10U);
    EXPECT_EQ(cut({200000, 200000, 200000}).size(), 3U);
    EXPECT_EQ(cut({1, 2, zip::shortestPiece + 1, 3, 4}).size(), 4U);
}

TEST(JobCutter, CoversAnyMixtureInOrder) {
    std::mt19937 random(9);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::uint64_t> sizes(random() % 40);
        for (std::uint64_t& size : sizes)
            size = random() % (std::uint64_t{1} << random() % 32);
        EXPECT_EQ(cut(sizes).empty(), sizes.empty());
    }
}

} // namespace
