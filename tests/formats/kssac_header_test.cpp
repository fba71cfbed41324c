/* A header variable at the wrong place, or with the wrong null, is read by other programs
 * as a different quantity: a pick becomes a latitude. */
#include <clocale>
#include <cmath>
#include <set>

#include "formats/kssac.h"
#include "tests/formats/sac_bytes.h"

namespace ksutil::sac::test {
namespace {

using testing::HasSubstr;

TEST(SacHeaderDefines, StandAtTheirPublishedWords) {
  const std::pair<const char *, int> published[] = {
      {"DELTA", kDelta},   {"SCALE", kScale},   {"B", kB},
      {"A", kA},           {"INTERNAL1", 9},    {"T0", kT0},
      {"T9", 19},          {"F", kF},           {"RESP0", 21},
      {"RESP9", 30},       {"STLA", kStla},     {"STDP", kStdp},
      {"EVLA", kEvla},     {"EVEL", 37},        {"EVDP", kEvdp},
      {"MAG", kMag},       {"USER0", kUser0},   {"USER9", 49},
      {"DIST", kDist},     {"GCARC", kGcarc},   {"INTERNAL3", 55},
      {"DEPMEN", kDepmen}, {"CMPAZ", kCmpaz},   {"CMPINC", kCmpinc},
      {"XMINIMUM", 59},    {"YMAXIMUM", 62},    {"UNUSED7", 69},
      {"NZYEAR", kNzyear}, {"NZMSEC", kNzmsec}, {"NVHDR", kNvhdr},
      {"NORID", kNorid},   {"NEVID", kNevid},   {"NPTS", kNpts},
      {"NWFID", kNwfid},   {"NXSIZE", 82},      {"IFTYPE", kIftype},
      {"IDEP", kIdep},     {"IZTYPE", kIztype}, {"IINST", 89},
      {"IEVTYP", 92},      {"IQUAL", 93},       {"IMAGSRC", kImagsrc},
      {"UNUSED17", 104},   {"LEVEN", kLeven},   {"LCALDA", kLcalda},
      {"UNUSED18", 109},   {"KSTNM", kKstnm},   {"KEVNM", kKevnm},
      {"KHOLE", kKhole},   {"KO", kKo},         {"KA", kKa},
      {"KT0", kKt0},       {"KF", kKf},         {"KUSER0", kKuser0},
      {"KCMPNM", kKcmpnm}, {"KNETWK", kKnetwk}, {"KDATRD", kKdatrd},
      {"KINST", kKinst},
  };
  for (const auto &[name, word] : published) {
    const KSSacDefine *const define = kssac_get_header_define(name);
    ASSERT_NE(define, nullptr) << name;
    EXPECT_EQ(define->offset, 4 * word) << name;
  }
}

TEST(SacHeaderDefines, CoverTheHeaderWithoutGapsUnderDistinctNames) {
  const int widths[] = {0, 4, 4, 4, 4, 8, 16};
  std::set<std::string> names;
  int at = 0;
  for (const KSSacDefine &define : SacHeaderDefines) {
    EXPECT_EQ(define.offset, at) << define.name;
    at += widths[define.type];
    names.insert(define.name);
    EXPECT_EQ(kssac_get_header_define(define.name), &define);
  }
  EXPECT_EQ(at, KSSAC_HEADER_SIZE);
  EXPECT_EQ(names.size(), 133U);
  EXPECT_EQ(kssac_get_header_define("delta"), nullptr);
  EXPECT_EQ(kssac_get_header_define(nullptr), nullptr);
  EXPECT_STREQ(kssac_get_header_define("NZYEAR")->description,
               "GMT year corresponding to reference time`");
  EXPECT_STREQ(kssac_get_header_define("T8")->description,
               "user defined time pick 8 (seconds relative to reference time)?");
}

TEST(NullHeader, HasEveryNullAndTheVersion) {
  SacBytes expected;
  for (int word = kKstnm; word < kData; word += 2) {
    expected.text(word, std::string("-12345\0\0", 8));
  }
  expected.text(kKevnm, std::string("-12345\0\0\0\0\0\0\0\0\0\0", 16));
  char header[KSSAC_HEADER_SIZE];
  ASSERT_EQ(kssac_fill_null_header(header), 0);
  EXPECT_EQ(std::string(header, sizeof header), expected.str());
  const KSSacPtr kssac = new_sac();
  EXPECT_EQ(std::string(kssac->image->header, sizeof header), expected.str());
  EXPECT_EQ(kssac->image->data, nullptr);
}

TEST(HeaderLists, StoreAndGiveEveryKindOfValue) {
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_puthdr_kssac(kssac.get(), "STLA", 0.1, "NEVID",
                               std::int64_t{0x1234567890}, "LCALDA", std::int64_t{1},
                               "KSTNM", "ABC", "KEVNM", "a name of more than 16",
                               "KCMPNM", "12345678", "KNETWK", (const char *)nullptr,
                               "T0", 1e300, "T1", -1e300, "T2", NAN, (char *)nullptr),
            0);
  EXPECT_EQ(real_at(*kssac, kStla), 0.1F);
  EXPECT_EQ(integer_at(*kssac, kNevid), 0x34567890);
  EXPECT_EQ(text_at(*kssac, kKstnm), "ABC     ");
  EXPECT_EQ(text_at(*kssac, kKevnm, 16), "a name of more t");
  EXPECT_EQ(text_at(*kssac, kKcmpnm), "12345678");
  EXPECT_EQ(text_at(*kssac, kKnetwk), "-12345  ");
  EXPECT_EQ(text_at(*kssac, kKhole), std::string("-12345\0\0", 8));

  double stla, t0, t1, t2;
  std::int64_t nevid, lcalda, norid;
  char kstnm[9], kevnm[17], kcmpnm[9], khole[9];
  ASSERT_EQ(kssac_gethdr_kssac(kssac.get(), "STLA", &stla, "NEVID", &nevid, "LCALDA",
                               &lcalda, "NORID", &norid, "KSTNM", kstnm, "KEVNM", kevnm,
                               "KCMPNM", kcmpnm, "KHOLE", khole, "T0", &t0, "T1", &t1,
                               "T2", &t2, (char *)nullptr),
            0);
  EXPECT_EQ(stla, static_cast<double>(0.1F));
  EXPECT_EQ(nevid, 0x34567890);
  EXPECT_EQ(lcalda, 1);
  EXPECT_EQ(norid, -12345);
  EXPECT_STREQ(kstnm, "ABC");
  EXPECT_STREQ(kevnm, "a name of more t");
  EXPECT_STREQ(kcmpnm, "12345678");
  EXPECT_STREQ(khole, "-12345");
  EXPECT_EQ(t0, INFINITY);
  EXPECT_EQ(t1, -INFINITY);
  EXPECT_TRUE(std::isnan(t2));
}

TEST(HeaderLists, TextsEndAtTheFirstNul) {
  const KSSacPtr kssac = new_sac();
  std::memcpy(kssac->image->header + 4 * kKstnm, "AB\0rest!", 8);
  std::memset(kssac->image->header + 4 * kKhole, 0, 8);
  char kstnm[9], khole[9];
  ASSERT_EQ(
      kssac_gethdr_kssac(kssac.get(), "KSTNM", kstnm, "KHOLE", khole, (char *)nullptr),
      0);
  EXPECT_STREQ(kstnm, "AB");
  EXPECT_STREQ(khole, "");
}

TEST(HeaderLists, OneUndefinedNameFailsTheWholeList) {
  const KSSacPtr kssac = new_sac();
  elog_clear_register(0);
  EXPECT_EQ(kssac_puthdr_kssac(kssac.get(), "KSTNM", "ABC", "STLA", 1.0, "NPTS",
                               std::int64_t{5}, "nowhere", 2.0, (char *)nullptr),
            -1);
  EXPECT_EQ(messages(), "kssac_puthdr_kssac: Undefined header name 'nowhere'\n");
  EXPECT_EQ(text_at(*kssac, kKstnm), std::string("-12345\0\0", 8));
  EXPECT_EQ(real_at(*kssac, kStla), -12345.0F);
  double stla = 7.0;
  EXPECT_EQ(kssac_gethdr_kssac(kssac.get(), "STLA", &stla, "", &stla, (char *)nullptr),
            -1);
  EXPECT_EQ(messages(), "kssac_gethdr_kssac: Undefined header name ''\n");
  EXPECT_EQ(stla, 7.0);
  EXPECT_EQ(kssac_gethdr_kssac(nullptr, "STLA", &stla, (char *)nullptr), -1);
}

TEST(HeaderTable, CarriesAHeaderToAnotherRecord) {
  const KSSacPtr from = new_sac(), to = new_sac();
  kssac_puthdr_kssac(from.get(), "DELTA", 0.01, "NPTS", std::int64_t{12}, "LEVEN",
                     std::int64_t{1}, "KINST", "last", "KEVNM", "sixteen letters!",
                     (char *)nullptr);
  Tbl *table = nullptr;
  ASSERT_EQ(kssac_header_2_tbl(from.get(), &table), 0);
  ASSERT_EQ(counttbl(table), 133);
  const auto *const last = static_cast<const KSSacHeaderValue *>(gettbl(table, 132));
  EXPECT_STREQ(last->name, "KINST");
  EXPECT_STREQ(last->value.s, "last");
  /* Made anew in place of the old one. */
  ASSERT_EQ(kssac_header_2_tbl(from.get(), &table), 0);
  ASSERT_EQ(kssac_tbl_2_header(table, to.get()), 0);
  EXPECT_EQ(std::memcmp(from->image->header, to->image->header, 440), 0);
  EXPECT_EQ(text_at(*to, kKevnm, 16), "sixteen letters!");
  EXPECT_EQ(text_at(*to, kKstnm), "-12345  ");
  kssac_free_header_tbl(table);
  kssac_free_header_tbl(nullptr);
}

TEST(HeaderTable, StoresNothingWhenAnEntryDoesNotFit) {
  const KSSacPtr kssac = new_sac();
  Tbl *const table = inittbl(2, sizeof(KSSacHeaderValue));
  char stla[] = "STLA", npts[] = "NPTS";
  KSSacHeaderValue entry{};
  entry.name = stla;
  entry.kind = KSSAC_KIND_REAL;
  entry.value.d = 1.0;
  pushtbl(table, &entry);
  entry.name = npts;  // an integer
  pushtbl(table, &entry);
  elog_clear_register(0);
  EXPECT_EQ(kssac_tbl_2_header(table, kssac.get()), -1);
  EXPECT_EQ(messages(), "kssac_tbl_2_header: Undefined header name 'NPTS'\n");
  EXPECT_EQ(real_at(*kssac, kStla), -12345.0F);
  freetbl(table, nullptr);
}

TEST(HeaderTable, FailsAtAnyAllocation) {
  const KSSacPtr kssac = new_sac();
  Tbl *table = nullptr;
  elog_clear_register(0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(kssac_header_2_tbl(kssac.get(), &table), -1);
  EXPECT_THAT(messages(), HasSubstr("kssac_header_2_tbl: inittbl() error.\n"));
  for (long n = 2; n < 400; ++n) {
    ks_test_fail_alloc(n);
    const int result = kssac_header_2_tbl(kssac.get(), &table);
    ks_test_fail_alloc(0);
    if (result == 0) break;
    EXPECT_EQ(table, nullptr);
  }
  EXPECT_EQ(counttbl(table), 133);
  kssac_free_header_tbl(table);
  elog_clear_register(0);
}

}  // namespace
}  // namespace ksutil::sac::test
