// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopFeed.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <semaphore>
#include <stdexcept>
#include <string>

namespace monitor::vesk {
namespace {

constexpr int kPatienceMs = 30'000;

// Waits for something to take.
std::optional<TopData> next(TopFeed& feed) {
  pollfd entry{feed.descriptor(), POLLIN, 0};
  if (::poll(&entry, 1, kPatienceMs) != 1) return std::nullopt;
  return feed.take();
}

TopData numbered(int number, bool projects = false) {
  TopData data;
  data.helperStatus = std::to_string(number);
  data.withProjects = projects;
  return data;
}

TEST(TopFeed, LooksAtOnceAndThenAgain) {
  std::atomic<int> looks = 0;
  TopFeed feed([&looks](bool) { return numbered(++looks); }, 0.01, false);
  const auto first = next(feed);
  ASSERT_TRUE(first);
  const auto second = next(feed);
  ASSERT_TRUE(second);
  EXPECT_LT(std::stoi(first->helperStatus), std::stoi(second->helperStatus));
}

TEST(TopFeed, ALookIsTakenOnce) {
  TopFeed feed([](bool) { return numbered(1); }, 60.0, false);
  ASSERT_TRUE(next(feed));
  EXPECT_FALSE(feed.take());
}

TEST(TopFeed, AskingForProjectsLooksAtOnce) {
  std::atomic<int> looks = 0;
  TopFeed feed([&looks](bool projects) { return numbered(++looks, projects); }, 3'600.0, false);
  auto data = next(feed);
  ASSERT_TRUE(data);
  EXPECT_FALSE(data->withProjects);
  feed.setProjects(true);
  // The second look, which follows the first one soon, may have come in between.
  do {
    data = next(feed);
    ASSERT_TRUE(data);
  } while (!data->withProjects);
}

// Waits for a look with or without projects.
bool reaches(TopFeed& feed, bool projects) {
  for (;;) {
    const auto data = next(feed);
    if (!data) return false;
    if (data->withProjects == projects) return true;
  }
}

TEST(TopFeed, APausedFeedLooksOnlyWhenItIsAskedTo) {
  std::atomic<int> looks = 0;
  TopFeed feed([&looks](bool projects) { return numbered(++looks, projects); }, 0.001, false);
  ASSERT_TRUE(next(feed));
  feed.setPaused(true);
  feed.setProjects(true);
  ASSERT_TRUE(reaches(feed, true));
  const int before = looks;
  feed.setProjects(false);
  ASSERT_TRUE(reaches(feed, false));
  EXPECT_EQ(looks, before + 1);
  feed.setPaused(false);
  for (int more = 0; more < 3; ++more) ASSERT_TRUE(next(feed));
}

TEST(TopFeed, ALookThatTakesLongHoldsNobodyUp) {
  std::binary_semaphore release(0);
  {
    TopFeed feed(
        [&release](bool) {
          release.acquire();
          return numbered(1);
        },
        1.0, false);
    EXPECT_FALSE(feed.take());
    feed.setProjects(true);
    feed.setPaused(true);
    release.release(1);
    EXPECT_TRUE(next(feed));
    release.release(1);  // for the look that projects asked for
  }
}

TEST(TopFeed, WhatALookThrowsIsThrownWhereItIsTaken) {
  TopFeed feed([](bool) -> TopData { throw std::runtime_error("no machine"); }, 1.0, false);
  try {
    (void)next(feed);
    FAIL() << "nothing thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "no machine");
  }
}

}  // namespace
}  // namespace monitor::vesk
