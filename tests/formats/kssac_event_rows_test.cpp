/* Files and databases tell of the same stations in different units; a factor or a null
 * taken over wrongly moves a station by kilometres, or invents one at -12345 degrees. */
#include <cmath>

#include "formats/kssac.h"
#include "platform/trace/trace.h"
#include "tests/formats/sac_bytes.h"

namespace ksutil::sac::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class KssacRows : public testing::Test {
 protected:
  void SetUp() override {
    db_ = dbtmp("css3.0");
    elog_clear_register(0);
  }
  void TearDown() override { dbclose(db_); }

  Dbptr table(const char *name) const { return dblookup(db_, "", name, "", ""); }
  Dbptr row(const char *name, long record) const {
    Dbptr found = table(name);
    found.record = record;
    return found;
  }
  /* The first record of wfdisc joined with site, sitechan and affiliation. */
  Dbptr joined() const {
    Dbptr view = table("wfdisc");
    for (const char *const name : {"site", "sitechan", "affiliation"}) {
      Tbl *keys = newtbl(1);
      char sta[] = "sta";
      pushtbl(keys, sta);
      view = dbjoin(view, table(name), keys, nullptr);
      freetbl(keys, nullptr);
    }
    view.record = 0;
    return view;
  }
  void add_station() const {
    dbaddv(table("wfdisc"), "sta", "ANMO", "chan", "BHZ", "time", 1252026123.25, "wfid",
           77L, "nsamp", 8L, "samprate", 40.0, "segtype", "o", (char *)nullptr);
    dbaddv(table("site"), "sta", "ANMO", "ondate", 1989241L, "lat", 34.5, "lon",
           -106.25, "elev", 1.85, (char *)nullptr);
    dbaddv(table("sitechan"), "sta", "ANMO", "chan", "BHZ", "ondate", 1989241L,
           "edepth", 0.1, "hang", 0.0, "vang", 180.0, (char *)nullptr);
    dbaddv(table("affiliation"), "net", "IU", "sta", "ANMO", (char *)nullptr);
  }

  Dbptr db_ = dbinvalid();
};

TEST_F(KssacRows, AJoinFillsTheHeader) {
  add_station();
  dbaddv(table("seedcode"), "sta", "ANMO", "chan", "BHZ", "net", "XX", "loc", "99",
         (char *)nullptr);
  dbaddv(table("seedcode"), "sta", "ANMO", "chan", "BHZ", "net", "IU", "loc", "00",
         (char *)nullptr);
  dbaddv(table("origin"), "lat", 34.5, "lon", -105.25, "depth", 7.5, "time",
         1252026100.0, "orid", 5L, "evid", 6L, (char *)nullptr);
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putevent_kssac(kssac.get(), joined(), row("origin", 0)), 0)
      << messages();
  SacBytes expected;
  expected.text(kKstnm, "ANMO    ").text(kKcmpnm, "BHZ     ").text(kKnetwk, "IU      ");
  expected.text(kKhole, "00      ");
  for (const int word : {kKstnm, kKcmpnm, kKnetwk, kKhole}) {
    EXPECT_EQ(text_at(*kssac, word), expected.str().substr(std::size_t(word) * 4, 8));
  }
  EXPECT_EQ(integer_at(*kssac, kNzjday), 247);
  EXPECT_EQ(integer_at(*kssac, kNzmsec), 250);
  EXPECT_EQ(integer_at(*kssac, kIztype), 9);
  EXPECT_EQ(real_at(*kssac, kB), 0.0F);
  EXPECT_EQ(real_at(*kssac, kDelta), 0.025F);
  EXPECT_EQ(integer_at(*kssac, kNpts), 8);
  EXPECT_EQ(real_at(*kssac, kStla), 34.5F);
  EXPECT_EQ(real_at(*kssac, kStlo), -106.25F);
  EXPECT_EQ(real_at(*kssac, kStel), 1850.0F);
  EXPECT_EQ(real_at(*kssac, kStdp), 100.0F);
  EXPECT_EQ(real_at(*kssac, kCmpaz), 0.0F);
  EXPECT_EQ(real_at(*kssac, kCmpinc), 180.0F);
  EXPECT_EQ(real_at(*kssac, kEvdp), 7500.0F);
  EXPECT_EQ(real_at(*kssac, kO), -23.25F);
  EXPECT_EQ(integer_at(*kssac, kNwfid), 77);
  EXPECT_EQ(integer_at(*kssac, kNorid), 5);
  EXPECT_EQ(integer_at(*kssac, kNevid), 6);
  /* One degree of longitude at 34.5 N: haversine by hand; the station lies west. */
  const double half = std::cos(34.5 * M_PI / 180) * std::sin(0.5 * M_PI / 180);
  const double gcarc = 2 * std::asin(half) * 180 / M_PI;
  EXPECT_NEAR(real_at(*kssac, kGcarc), gcarc, 1e-6);
  EXPECT_NEAR(real_at(*kssac, kDist), gcarc * M_PI / 180 * 6371, 1e-4);
  const double tilt =
      std::atan(std::tan(0.5 * M_PI / 180) * std::sin(34.5 * M_PI / 180));
  EXPECT_NEAR(real_at(*kssac, kAz), 270 + tilt * 180 / M_PI, 1e-4);
  EXPECT_NEAR(real_at(*kssac, kBaz), 90 - tilt * 180 / M_PI, 1e-4);
}

TEST_F(KssacRows, NullsAndMissingTablesAreHeaderNulls) {
  dbaddv(table("wfdisc"), "sta", "ABC", (char *)nullptr);
  dbaddv(table("origin"), "orid", 5L, (char *)nullptr);
  const KSSacPtr kssac = new_sac();
  kssac_puthdr_kssac(kssac.get(), "STLA", 1.0, "KNETWK", "XX", "KHOLE", "01", "NEVID",
                     std::int64_t{3}, "O", 5.0, "GCARC", 4.0, "B", 2.0,
                     (char *)nullptr);
  ASSERT_EQ(kssac_putevent_kssac(kssac.get(), row("wfdisc", 0), row("origin", 0)), 0);
  SacBytes expected;
  expected.text(kKstnm, "ABC     ").integer(kNorid, 5).real(kB, 2.0F);
  for (const int word : {kStla, kStel, kStdp, kCmpaz, kEvla, kEvdp, kO, kGcarc, kB}) {
    EXPECT_EQ(real_at(*kssac, word), word == kB ? 2.0F : -12345.0F) << word;
  }
  for (const int word : {kKcmpnm, kKnetwk, kKhole}) {
    EXPECT_EQ(text_at(*kssac, word), "-12345  ");
  }
  EXPECT_EQ(integer_at(*kssac, kNevid), -12345);
  EXPECT_EQ(integer_at(*kssac, kNwfid), -12345);
}

TEST_F(KssacRows, InvalidPointersAreLeftOut) {
  const KSSacPtr kssac = new_sac();
  kssac_puthdr_kssac(kssac.get(), "STLA", 1.0, "EVLA", 2.0, "GCARC", 3.0,
                     (char *)nullptr);
  const std::string before(kssac->image->header, KSSAC_HEADER_SIZE);
  EXPECT_EQ(kssac_putevent_kssac(kssac.get(), dbinvalid(), dbinvalid()), 0);
  EXPECT_EQ(kssac_getevent_kssac(kssac.get(), dbinvalid(), dbinvalid()), 0);
  EXPECT_EQ(std::string(kssac->image->header, KSSAC_HEADER_SIZE), before);
  EXPECT_EQ(kssac_putevent_kssac(kssac.get(), row("wfdisc", 3), dbinvalid()), -1);
  EXPECT_THAT(messages(),
              HasSubstr("kssac_putevent_kssac: Cannot read the database row.\n"));
}

TEST_F(KssacRows, RowsGetTheHeaderBack) {
  add_station();
  dbaddv(table("origin"), "lat", 34.5, "lon", -105.25, "depth", 7.5, "time",
         1252026100.5, "orid", 5L, "evid", 6L, (char *)nullptr);
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putevent_kssac(kssac.get(), joined(), row("origin", 0)), 0);
  for (const char *const name :
       {"wfdisc", "site", "sitechan", "affiliation", "origin"}) {
    const Dbptr target = row(name, dbSCRATCH);
    ASSERT_EQ(
        kssac_getevent_kssac(kssac.get(), target,
                             std::string(name) == "origin" ? target : dbinvalid()),
        0)
        << messages();
  }
  char sta[7], chan[9], net[9];
  double time, endtime, samprate, lat, lon, elev, edepth, hang, vang, depth;
  long nsamp, wfid, jdate, orid, evid;
  ASSERT_EQ(dbgetv(row("wfdisc", dbSCRATCH), "sta", sta, "chan", chan, "time", &time,
                   "endtime", &endtime, "samprate", &samprate, "nsamp", &nsamp, "wfid",
                   &wfid, "jdate", &jdate, (char *)nullptr),
            0);
  EXPECT_STREQ(sta, "ANMO");
  EXPECT_STREQ(chan, "BHZ");
  EXPECT_EQ(time, 1252026123.25);
  EXPECT_EQ(endtime, 1252026123.425);
  EXPECT_EQ(samprate, 40.0);
  EXPECT_EQ(nsamp, 8);
  EXPECT_EQ(wfid, 77);
  EXPECT_EQ(jdate, 2009247);
  dbgetv(row("site", dbSCRATCH), "lat", &lat, "lon", &lon, "elev", &elev,
         (char *)nullptr);
  EXPECT_EQ(lat, 34.5);
  EXPECT_EQ(lon, -106.25);
  EXPECT_EQ(elev, 1.85);
  dbgetv(row("sitechan", dbSCRATCH), "edepth", &edepth, "hang", &hang, "vang", &vang,
         (char *)nullptr);
  EXPECT_EQ(edepth, 0.1);
  EXPECT_EQ(hang, 0.0);
  EXPECT_EQ(vang, 180.0);
  dbgetv(row("affiliation", dbSCRATCH), "net", net, (char *)nullptr);
  EXPECT_STREQ(net, "IU");
  dbgetv(row("origin", dbSCRATCH), "lat", &lat, "depth", &depth, "time", &time, "orid",
         &orid, "evid", &evid, (char *)nullptr);
  EXPECT_EQ(lat, 34.5);
  EXPECT_EQ(depth, 7.5);
  EXPECT_EQ(time, 1252026100.5);
  EXPECT_EQ(orid, 5);
  EXPECT_EQ(evid, 6);
}

TEST_F(KssacRows, HeaderNullsLeaveRowsAsTheyAre) {
  add_station();
  dbaddv(table("origin"), "lat", 34.5, "orid", 5L, (char *)nullptr);
  const KSSacPtr kssac = new_sac();
  std::vector<std::string> before, after;
  const auto texts = [&](std::vector<std::string> &rows) {
    for (const char *const name :
         {"wfdisc", "site", "sitechan", "affiliation", "origin"}) {
      char text[400];
      ASSERT_EQ(dbget(row(name, 0), text), 0);
      rows.push_back(text);
    }
  };
  texts(before);
  ASSERT_EQ(kssac_getevent_kssac(kssac.get(), joined(), row("origin", 0)), 0);
  texts(after);
  EXPECT_EQ(before, after);
}

/* A null taken for a number would move the time by seconds, or by years. */
TEST_F(KssacRows, APartOfAReferenceTimeIsNone) {
  add_station();
  const KSSacPtr kssac = new_sac();
  const float sample = 1.0F;
  const double day = 1252022400.0;
  const auto time = [&] {
    double found = 0.0;
    EXPECT_EQ(kssac_getevent_kssac(kssac.get(), row("wfdisc", 0), dbinvalid()), 0);
    dbgetv(row("wfdisc", 0), "time", &found, (char *)nullptr);
    return found;
  };
  for (const char *const name :
       {"NZYEAR", "NZJDAY", "NZHOUR", "NZMIN", "NZSEC", "NZMSEC"}) {
    kssac_putdata_kssac(kssac.get(), 1, &sample, "-", day + 3661.5, 40.0);
    kssac_puthdr_kssac(kssac.get(), name, std::int64_t{-12345}, (char *)nullptr);
    EXPECT_EQ(time(), 1252026123.25) << name;
  }
  kssac_puthdr_kssac(kssac.get(), "IZTYPE", std::int64_t{10}, (char *)nullptr);
  EXPECT_EQ(time(), day) << "a day needs no time of day";
}

TEST_F(KssacRows, AValueThatDoesNotFitChangesNoRow) {
  add_station();
  const KSSacPtr kssac = new_sac();
  kssac_puthdr_kssac(kssac.get(), "KSTNM", "NEWNAME", "STLA", 12.0, (char *)nullptr);
  elog_clear_register(0);
  EXPECT_EQ(kssac_getevent_kssac(kssac.get(), joined(), dbinvalid()), -1);
  EXPECT_THAT(messages(),
              HasSubstr("kssac_getevent_kssac: A header value does not fit"));
  double lat;
  dbgetv(row("site", 0), "lat", &lat, (char *)nullptr);
  EXPECT_EQ(lat, 34.5);
}

TEST(KssacTraceRows, HandSamplesToAndFro) {
  Dbptr trace = dblookup(trnew(), "", "trace", "", "");
  const auto new_row = [&](long nsamp, float value) {
    auto *const data = static_cast<float *>(std::malloc(sizeof(float) * 4));
    for (int i = 0; i < 4; ++i) data[i] = value + static_cast<float>(i);
    Dbptr row = trace;
    row.record = dbaddv(trace, "net", "IU", "sta", "ANMO", "chan", "BHZ", "time",
                        1000.5, "samprate", 20.0, "nsamp", nsamp, "segtype", "V",
                        "data", data, (char *)nullptr);
    return row;
  };
  const Dbptr first = new_row(4, 1.0F), second = new_row(2, 10.0F);
  const KSSacPtr kssac = new_sac();
  ASSERT_EQ(kssac_putevent_kssac(kssac.get(), first, dbinvalid()), 0);
  EXPECT_EQ(integer_at(*kssac, kIdep), 7);
  EXPECT_EQ(text_at(*kssac, kKnetwk), "IU      ");
  EXPECT_THAT(std::vector<float>(kssac->image->data, kssac->image->data + 4),
              ElementsAre(1, 2, 3, 4));

  /* The second row's own samples go, once; those that two rows share stay. */
  ASSERT_EQ(kssac_getevent_kssac(kssac.get(), second, dbinvalid()), 0) << messages();
  float *shared = nullptr;
  ASSERT_EQ(dbgetv(second, "data", &shared, (char *)nullptr), 0);
  float *first_own = nullptr;
  ASSERT_EQ(dbgetv(first, "data", &first_own, (char *)nullptr), 0);
  ASSERT_EQ(dbputv(first, "data", shared, (char *)nullptr), 0);
  std::free(first_own);
  ASSERT_EQ(kssac_getevent_kssac(kssac.get(), second, dbinvalid()), 0);
  float *own = nullptr;
  long nsamp;
  char segtype[2];
  ASSERT_EQ(dbgetv(second, "data", &own, "nsamp", &nsamp, "segtype", segtype,
                   (char *)nullptr),
            0);
  EXPECT_NE(own, shared);
  EXPECT_EQ(nsamp, 4);
  EXPECT_STREQ(segtype, "V");
  EXPECT_THAT(std::vector<float>(own, own + 4), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(shared[3], 4.0F);
  trdestroy(&trace);
}

/* A row that told of more samples than it has would be read beyond their end. */
TEST(KssacTraceRows, CountOnlyTheSamplesTheyHave) {
  Dbptr trace = dblookup(trnew(), "", "trace", "", "");
  Dbptr row = trace;
  const auto nsamp_of = [&] {
    long nsamp = -1;
    dbgetv(row, "nsamp", &nsamp, (char *)nullptr);
    return nsamp;
  };
  row.record =
      dbaddv(trace, "sta", "ANMO", "chan", "BHZ", "time", 1000.5, "samprate", 20.0,
             "nsamp", 4L, "data", std::calloc(4, sizeof(float)), (char *)nullptr);
  const KSSacPtr header = new_sac();
  kssac_puthdr_kssac(header.get(), "KSTNM", "NEW", "NPTS", std::int64_t{1000},
                     (char *)nullptr);
  ASSERT_EQ(kssac_getevent_kssac(header.get(), row, dbinvalid()), 0) << messages();
  char sta[7];
  dbgetv(row, "sta", sta, (char *)nullptr);
  EXPECT_STREQ(sta, "NEW");
  EXPECT_EQ(nsamp_of(), 4);

  const KSSacPtr longer = new_sac();
  const std::vector<float> samples(1000, 1.0F);
  ASSERT_EQ(kssac_putdata_kssac(longer.get(), 1000, samples.data(), "V", 0.0, 1.0), 0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(kssac_getevent_kssac(longer.get(), row, dbinvalid()), -1);
  ks_test_fail_alloc(0);
  EXPECT_EQ(nsamp_of(), 4);
  EXPECT_THAT(messages(),
              HasSubstr("kssac_getevent_kssac: kssac_getdata_kssac() error.\n"));
  trdestroy(&trace);
}

}  // namespace
}  // namespace ksutil::sac::test
