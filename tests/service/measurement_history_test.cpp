// The history keeps what it committed across reopening, answers the list's
// queries newest first, refuses a schema it does not know, and says clearly
// when the disk is full without losing what it already holds.
#include "service/measurement_history.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

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
  const std::vector<Case> cases = {
      {{std::nullopt, std::nullopt, 100}, {5, 4, 3, 2, 1}},
      {{std::nullopt, std::nullopt, 2}, {5, 4}},
      {{3, std::nullopt, 100}, {5, 4}},
      {{5, std::nullopt, 100}, {}},
      {{std::nullopt, 3000, 100}, {5, 4, 3}},
      {{std::nullopt, 3001, 100}, {5, 4}},
      {{1, 2000, 1}, {5}},
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

}  // namespace
}  // namespace boxdim::service
