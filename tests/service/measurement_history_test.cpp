// The history keeps what it committed across reopening, answers the list's
// queries newest first, refuses a schema it does not know, and says clearly
// when the disk is full without losing what it already holds.
#include "service/measurement_history.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "cli/temp_dir.h"

namespace boxdim::service {
namespace {

MeasurementRecord box(std::int64_t time_us, int track) {
  MeasurementRecord r;
  r.time_us = time_us;
  r.device_id = 1;
  r.track_id = track;
  r.length_mm = 400.04;
  r.width_mm = 300.0;
  r.height_mm = 200.0;
  r.uncertainty_mm = 0.2;
  r.frames = 12;
  return r;
}

const std::vector<unsigned char> kPng = {0x89, 'P', 'N', 'G', 1, 2, 3};

std::vector<std::int64_t> ids_of(const std::vector<MeasurementRecord>& records) {
  std::vector<std::int64_t> ids;
  for (const MeasurementRecord& r : records) ids.push_back(r.id);
  return ids;
}

TEST(MeasurementHistory, KeepsRecordsAndProofsAcrossReopening) {
  testing::TempDir dir;
  {
    MeasurementHistory history(dir.file("data"));
    EXPECT_EQ(history.add(box(1000, 1), kPng).id, 1);
    EXPECT_EQ(history.add(box(2000, 2), {}).id, 2);
  }
  MeasurementHistory history(dir.file("data"));
  ASSERT_EQ(history.count(), 2);
  const auto first = history.find(1);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->time_us, 1000);
  EXPECT_EQ(first->track_id, 1);
  EXPECT_DOUBLE_EQ(first->length_mm, 400.04);
  EXPECT_EQ(first->frames, 12);
  EXPECT_TRUE(first->has_proof);
  const auto path = history.proof_path(1);
  ASSERT_TRUE(path);
  std::ifstream in(*path, std::ios::binary);
  EXPECT_EQ(std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {}), kPng);
  EXPECT_FALSE(history.proof_path(2)) << "stored without a proof";
  EXPECT_FALSE(history.find(3));
  EXPECT_EQ(history.add(box(3000, 3), {}).id, 3) << "ids go on after a restart";
  EXPECT_EQ(history.integrity_check(), "ok");
}

TEST(MeasurementHistory, ListsNewestFirstAfterAnIdOrSinceATime) {
  testing::TempDir dir;
  MeasurementHistory history(dir.file("data"));
  for (int i = 1; i <= 5; ++i) history.add(box(i * 1000, i), {});
  struct Case {
    HistoryQuery query;
    std::vector<std::int64_t> ids;
  };
  // Without a start, the newest; from a start, the first ones after it.
  const std::vector<Case> cases = {
      {{std::nullopt, std::nullopt, 100}, {5, 4, 3, 2, 1}},
      {{std::nullopt, std::nullopt, 2}, {5, 4}},
      {{3, std::nullopt, 100}, {5, 4}},
      {{1, std::nullopt, 2}, {3, 2}},
      {{5, std::nullopt, 100}, {}},
      {{std::nullopt, 3000, 100}, {5, 4, 3}},
      {{std::nullopt, 3001, 100}, {5, 4}},
      {{std::nullopt, 2000, 2}, {3, 2}},
      {{1, 2000, 1}, {2}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ids_of(history.list(c.query)), c.ids)
        << "after " << c.query.after_id.value_or(-1) << " since "
        << c.query.since_time_us.value_or(-1) << " limit " << c.query.limit;
  }
}

TEST(MeasurementHistory, RefusesASchemaFromANewerVersion) {
  testing::TempDir dir;
  { MeasurementHistory history(dir.file("data")); }
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(dir.file("data/history.sqlite3").c_str(), &db), SQLITE_OK);
  sqlite3_exec(db, "PRAGMA user_version = 7", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  try {
    MeasurementHistory history(dir.file("data"));
    FAIL() << "opened a schema it does not know";
  } catch (const HistoryError& e) {
    EXPECT_EQ(std::string(e.what()),
              dir.file("data/history.sqlite3") +
                  ": written by a newer boxdim (schema version 7; this one knows up to 1)");
  }
}

TEST(MeasurementHistory, SaysWhyAFolderCannotHoldIt) {
  testing::TempDir dir;
  std::ofstream(dir.file("a-file")) << "x";
  try {
    MeasurementHistory history(dir.file("a-file/data"));
    FAIL() << "made a history inside a file";
  } catch (const HistoryError& e) {
    EXPECT_EQ(std::string(e.what()).rfind(dir.file("a-file/data") + ": cannot be created (", 0), 0u)
        << e.what();
  }
}

TEST(MeasurementHistory, AFullDiskFailsTheNewRecordAndKeepsTheOld) {
  testing::TempDir dir;
  // A few pages: the table and its index fill them within some hundred rows.
  MeasurementHistory history(dir.file("data"), 8);
  int stored = 0;
  std::string failure;
  for (int i = 0; i < 2000 && failure.empty(); ++i) {
    try {
      history.add(box(i, i), {});
      ++stored;
    } catch (const HistoryError& e) {
      failure = e.what();
    }
  }
  ASSERT_FALSE(failure.empty()) << "the bound never filled";
  EXPECT_EQ(failure, dir.file("data/history.sqlite3") + ": database or disk is full");
  EXPECT_EQ(history.count(), stored);
  EXPECT_EQ(history.integrity_check(), "ok");
  EXPECT_THROW(history.add(box(9, 9), {}), HistoryError) << "and stays full";
}

// A client catching up page by page, each time from the highest id it got,
// sees every record once, however the pages fall.
TEST(MeasurementHistory, PagesFromAnIdMissNone) {
  testing::TempDir dir;
  MeasurementHistory history(dir.file("data"));
  for (int i = 1; i <= 133; ++i) history.add(box(i * 1000, i), {});
  for (const int limit : {1, 7, 100, 1000}) {
    std::vector<std::int64_t> seen;
    std::int64_t after = 20;
    for (int page = 0; page < 200; ++page) {
      const std::vector<MeasurementRecord> got = history.list({after, std::nullopt, limit});
      if (got.empty()) break;
      for (auto r = got.rbegin(); r != got.rend(); ++r) seen.push_back(r->id);
      after = got.front().id;
    }
    std::vector<std::int64_t> expected;
    for (std::int64_t id = 21; id <= 133; ++id) expected.push_back(id);
    EXPECT_EQ(seen, expected) << "pages of " << limit;
  }
}

// One data folder, one history: a second one is refused while the first
// holds it, in this process as from another, and allowed once it is gone.
TEST(MeasurementHistory, HoldsItsFolderAgainstASecondOne) {
  testing::TempDir dir;
  {
    MeasurementHistory first(dir.file("data"));
    try {
      MeasurementHistory second(dir.file("data"));
      FAIL() << "two histories share a folder";
    } catch (const HistoryError& e) {
      EXPECT_EQ(std::string(e.what()), dir.file("data") + ": in use by another boxdim (process " +
                                           std::to_string(::getpid()) +
                                           "); one service keeps one data folder");
    }
    first.add(box(1000, 1), {});
  }
  MeasurementHistory again(dir.file("data"));
  EXPECT_EQ(again.count(), 1);
}

// A database file removed or replaced under the history is noticed before
// a record goes into a file nobody reads; a history made anew beside the
// old pictures numbers its records above them and overwrites none.
TEST(MeasurementHistory, ADatabaseRemovedOrReplacedIsNoticedAndNoPictureOverwritten) {
  for (const bool replaced : {false, true}) {
    testing::TempDir dir;
    const std::string database = dir.file("data/history.sqlite3");
    const std::vector<unsigned char> first_picture = {0x89, 'P', 'N', 'G', 'a'};
    {
      MeasurementHistory history(dir.file("data"));
      history.add(box(1000, 1), first_picture);
      history.add(box(2000, 2), first_picture);
      EXPECT_EQ(history.file_problem(), "");
      std::filesystem::remove(database);
      if (replaced) std::ofstream(database) << "another file";
      const std::string expected =
          database + (replaced ? ": was replaced" : ": was removed") +
          " while the service ran; nothing more is stored until it starts again";
      EXPECT_EQ(history.file_problem(), expected);
      try {
        history.add(box(3000, 3), kPng);
        FAIL() << "stored into a file that is gone";
      } catch (const HistoryError& e) {
        EXPECT_EQ(std::string(e.what()), expected);
      }
    }
    if (replaced) std::filesystem::remove(database);
    MeasurementHistory anew(dir.file("data"));
    EXPECT_EQ(anew.count(), 0);
    std::string problem;
    const MeasurementRecord next = anew.add(box(4000, 4), kPng, &problem);
    EXPECT_EQ(next.id, 3) << "above the pictures of records 1 and 2";
    EXPECT_EQ(problem, "");
    std::ifstream old_picture(dir.file("data/proofs/2.png"), std::ios::binary);
    EXPECT_EQ(std::vector<unsigned char>(std::istreambuf_iterator<char>(old_picture), {}),
              first_picture)
        << "an earlier history's picture is left as it was";
  }
}

}  // namespace
}  // namespace boxdim::service
