// What a client may ask of the measurement list, and the message for each
// way of asking wrongly; UTC times read back as they are written.
#include "service/request_parameters.h"

#include <gtest/gtest.h>

namespace boxdim::service {
namespace {

struct QueryCase {
  std::multimap<std::string, std::string> params;
  std::optional<std::int64_t> after_id;
  std::optional<std::int64_t> since_time_us;
  int limit;
  std::string problem;
};

TEST(HistoryQuery, ParsesGoodParametersAndNamesTheBadOne) {
  const std::vector<QueryCase> cases = {
      {{}, std::nullopt, std::nullopt, 100, ""},
      {{{"since", "41"}, {"limit", "5"}}, 41, std::nullopt, 5, ""},
      {{{"since", "2026-11-23T08:15:02Z"}}, std::nullopt, 1795421702000000, 100, ""},
      {{{"since", "2026-11-23T08:15:02.5Z"}}, std::nullopt, 1795421702500000, 100, ""},
      {{{"limit", "1000"}}, std::nullopt, std::nullopt, 1000, ""},
      {{{"limit", "0"}}, {}, {}, 0, "limit: '0' is not a whole number from 1 to 1000"},
      {{{"limit", "1001"}}, {}, {}, 0, "limit: '1001' is not a whole number from 1 to 1000"},
      {{{"limit", "5x"}}, {}, {}, 0, "limit: '5x' is not a whole number from 1 to 1000"},
      {{{"limit", "99999999999999999999"}},
       {},
       {},
       0,
       "limit: '99999999999999999999' is not a whole number from 1 to 1000"},
      {{{"since", "-3"}},
       {},
       {},
       0,
       "since: '-3' is neither a measurement id nor a UTC time like 2026-11-23T08:15:02Z"},
      {{{"since", "2026-02-30T00:00:00Z"}},
       {},
       {},
       0,
       "since: '2026-02-30T00:00:00Z' is neither a measurement id nor a UTC time like "
       "2026-11-23T08:15:02Z"},
      {{{"since", "2026-11-23T08:15:02"}},
       {},
       {},
       0,
       "since: '2026-11-23T08:15:02' is neither a measurement id nor a UTC time like "
       "2026-11-23T08:15:02Z"},
      {{{"since", "1"}, {"since", "2"}}, {}, {}, 0, "since: given more than once"},
      {{{"limt", "5"}}, {}, {}, 0, "unknown parameter 'limt' (since, limit)"},
      {{{std::string(100, 'x'), "5"}},
       {},
       {},
       0,
       "unknown parameter '" + std::string(40, 'x') + "...' (since, limit)"},
  };
  for (const QueryCase& c : cases) {
    const ParsedQuery parsed = parse_history_query(c.params, 100, 1000);
    EXPECT_EQ(parsed.problem, c.problem);
    if (!c.problem.empty()) continue;
    EXPECT_EQ(parsed.query.after_id, c.after_id);
    EXPECT_EQ(parsed.query.since_time_us, c.since_time_us);
    EXPECT_EQ(parsed.query.limit, c.limit);
  }
}

TEST(UtcTime, ReadsBackWhatItWrites) {
  for (const std::int64_t time_us :
       {std::int64_t{0}, std::int64_t{1795421702123000}, std::int64_t{951782400000000}}) {
    const std::string text = utc_time_text(time_us);
    std::int64_t back = -1;
    ASSERT_TRUE(parse_utc_time(text, back)) << text;
    EXPECT_EQ(back, time_us) << text;
  }
  EXPECT_EQ(utc_time_text(1795421702123456), "2026-11-23T08:15:02.123Z");
  EXPECT_EQ(utc_time_text(951782400000000), "2000-02-29T00:00:00.000Z") << "a leap day";
}

}  // namespace
}  // namespace boxdim::service
