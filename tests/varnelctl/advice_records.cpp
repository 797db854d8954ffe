// The table of advice against the library's table of alert records, which varnel.dll keeps to itself: on Windows this
// is no part of the tests.
#include <gtest/gtest.h>

#include "core/alerts.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/records.h"

namespace varnel::test {
namespace {

using varnelctl::Advice;
using varnelctl::AdviceKind;
using varnelctl::FindAdvice;

std::string TagWord(const AlertRecord& record) {
  const std::string tag = record.tag == nullptr ? "COMMError" : record.tag;
  const std::string prefix = "RequestStatus=";
  return tag.starts_with(prefix) ? tag.substr(prefix.size()) : tag;
}

TEST(AdviceOnRecords, EveryRecordHasSomeUnderTheWordOfItsTag) {
  const auto records = alert::All();
  for (std::size_t i = 0; i < records.size(); ++i) {
    const Advice* advice = FindAdvice(AdviceKind::Record, static_cast<DWORD>(i + 1));
    ASSERT_NE(advice, nullptr) << i + 1;
    EXPECT_EQ(advice->name, TagWord(*records[i]));
  }
}

TEST(AdviceOnRecords, AreEveryRecordOfTheTableInItsOrder) {
  std::string text = "writer=0,";
  for (const AlertRecord* record : alert::All()) {
    WriteAlert(*record, {"one", "two", "three", "four", "five", "six"}, {text});
  }
  const auto records = varnelctl::RecordsIn(text);
  ASSERT_EQ(records.size(), alert::All().size());
  for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(records[i].number, i + 1);
}

}  // namespace
}  // namespace varnel::test
