/* A bulletin is read by columns: a shift by one gives residuals, azimuths and magnitudes
 * that look right and belong to something else. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/formats/exchange/reading.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kOrigins =
    "   Date       Time        Err   RMS Latitude Longitude  Smaj  Smin  Az Depth   "
    "Err "
    "Ndef Nsta Gap  mdist  Mdist Qual   Author      OrigID\n";
const std::string kBulletin =
    "BEGIN IMS1.0\n"
    "MSG_TYPE DATA\n"
    "MSG_ID 77 BBB\n"
    "DATA_TYPE BULLETIN IMS1.0:long\n"
    "Some Bulletin\n"
    "Event     4711 Fiji region\n"
    "\n" +
    kOrigins +
    "2001/02/03 23:59:30.25              -12.5000  170.2500                            "
    "  "
    "                               uk AAA            101\n"
    "2001/02/03 23:59:31.50f  0.25  0.75 -12.6250 -179.5000f 10.5   4.5 135  33.0f  "
    "2.5  "
    " 12   10  95   1.25  88.50 m i se BBB            102\n"
    " (#PRIME)\n"
    " (Felt at sea)\n"
    "\n"
    "Magnitude  Err Nsta Author      OrigID\n"
    "mb     4.5 0.2    7 BBB            102\n"
    "MS   < 4.0          AAA            101\n"
    "\n"
    "Sta     Dist  EvAz Phase        Time      TRes  Azim AzRes   Slow   SRes Def   "
    "SNR  "
    "     Amp   Per Qual Magnitude    ArrID\n"
    "ABCDE  10.25 330.5 Pn       00:02:03.125  -1.5 150.5  -2.5   13.5   -0.5 TA_  "
    "12.5  "
    "     3.5  0.75 acq mb     4.6     9001\n"
    "FGH                S        23:59:50                                     ___      "
    "  "
    "               m_e                9002\n"
    " (Weak)\n"
    "FGH                LR                                                             "
    "  "
    "                   MS     4.1\n"
    "\n"
    "Net      Chan F Low_F HighF AuthPhas    Date     eTime wTime eAzim wAzim  eSlow "
    "wSlow"
    "      eAmp  ePer eMag Author     ArrID\n"
    "NN        BHZ               P        2001/02/04  0.125 0.750   3.5          0.5   "
    "  "
    "                      CCC           9001\n"
    "\n"
    "STOP\n";
/* 2001-02-04T00:00:00 */
constexpr double kMidnight = 981244800.0;

TEST(IsfReader, GivesOriginsAndMagnitudesOfAgencies) {
  const ReadEvents result = read_events(kBulletin);
  EXPECT_EQ(result.format, "isf");
  EXPECT_THAT(result.refused, IsEmpty());
  ASSERT_THAT(result.events, SizeIs(1));
  const Event &event = result.events[0];
  EXPECT_EQ(event.id, "BBB:4711");
  EXPECT_EQ(event.place, "Fiji region");
  EXPECT_EQ(event.type, "earthquake");
  EXPECT_EQ(event.line, 6);
  ASSERT_THAT(event.origins, SizeIs(2));
  EXPECT_EQ(event.preferred, 1U);
  const Origin &first = event.origins[0], &second = event.origins[1];
  EXPECT_EQ(first.id, "BBB:101");
  EXPECT_EQ(first.author, "AAA");
  EXPECT_NEAR(first.time, kMidnight - 29.75, 1e-6);
  EXPECT_EQ(first.lat, -12.5);
  EXPECT_EQ(first.lon, 170.25);
  EXPECT_EQ(first.depth, -999.0);
  EXPECT_EQ(first.depth_type, 0);
  EXPECT_EQ(first.confidence, 0.0);
  EXPECT_EQ(second.time_error, 0.25);
  EXPECT_EQ(second.rms, 0.75);
  EXPECT_EQ(second.lat, -12.625);
  EXPECT_EQ(second.lon, -179.5);
  EXPECT_EQ(second.major_axis, 10.5);
  EXPECT_EQ(second.minor_axis, 4.5);
  EXPECT_EQ(second.ellipse_strike, 135.0);
  EXPECT_EQ(second.confidence, 0.9);
  EXPECT_EQ(second.depth, 33.0);
  EXPECT_EQ(second.depth_type, 'g') << "the flag f is a depth that was fixed";
  EXPECT_EQ(second.depth_error, 2.5);
  EXPECT_EQ(second.phases, 12);
  EXPECT_EQ(second.gap, 95.0);
  EXPECT_EQ(second.nearest, 1.25);
  EXPECT_EQ(second.status, "manual");
  EXPECT_EQ(second.algorithm, "inversion");
  EXPECT_THAT(second.comments, ElementsAre("Felt at sea"));
  ASSERT_THAT(second.magnitudes, SizeIs(1));
  EXPECT_EQ(second.magnitudes[0].type, "mb");
  EXPECT_EQ(second.magnitudes[0].value, 4.5);
  EXPECT_EQ(second.magnitudes[0].error, 0.2);
  EXPECT_EQ(second.magnitudes[0].stations, 7);
  ASSERT_THAT(first.magnitudes, SizeIs(1));
  EXPECT_EQ(first.magnitudes[0].author, "AAA");
  EXPECT_THAT(result.unplaced,
              ElementsAre("fixed origin times: 1", "fixed epicentres: 1",
                          "number of stations (Nsta): 1",
                          "distance of the farthest station (Mdist): 1",
                          "suspected, felt or damaging events: 1",
                          "magnitudes that are lower or upper bounds: 1",
                          "marks of automatic picks: 1", "phases without a time: 1"));
}

TEST(IsfReader, GivesPhasesOfThePrimeOrigin) {
  const ReadEvents result = read_events(kBulletin);
  ASSERT_THAT(result.events, SizeIs(1));
  const Event &event = result.events[0];
  ASSERT_THAT(event.picks, SizeIs(2));
  const Pick &pick = event.picks[0];
  EXPECT_EQ(pick.id, "BBB:9001");
  EXPECT_EQ(pick.at.network, "NN");
  EXPECT_EQ(pick.at.station, "ABCDE");
  EXPECT_EQ(pick.at.channel, "BHZ");
  EXPECT_EQ(pick.author, "CCC");
  EXPECT_NEAR(pick.time, kMidnight + 123.125, 1e-6) << "the day after the origin";
  EXPECT_EQ(pick.time_error, 0.125);
  EXPECT_EQ(pick.phase, "P") << "as the author of the pick named it";
  EXPECT_EQ(pick.azimuth, 150.5);
  EXPECT_EQ(pick.azimuth_error, 3.5);
  EXPECT_EQ(pick.slowness, 13.5);
  EXPECT_EQ(pick.slowness_error, 0.5);
  EXPECT_EQ(pick.snr, 12.5);
  EXPECT_EQ(pick.amplitude, 3.5);
  EXPECT_EQ(pick.period, 0.75);
  EXPECT_TRUE(pick.automatic);
  EXPECT_EQ(pick.first_motion, 'c');
  EXPECT_EQ(pick.onset, 'w');
  EXPECT_NEAR(event.picks[1].time, kMidnight - 10.0, 1e-6) << "the day of the origin";
  EXPECT_EQ(event.picks[1].onset, 'e');
  EXPECT_THAT(event.picks[1].comments, ElementsAre("Weak"));
  EXPECT_THAT(event.origins[0].associations, IsEmpty());
  ASSERT_THAT(event.origins[1].associations, SizeIs(2));
  const Association &association = event.origins[1].associations[0];
  EXPECT_EQ(association.pick, 0);
  EXPECT_EQ(association.phase, "Pn");
  EXPECT_EQ(association.delta, 10.25);
  EXPECT_EQ(association.esaz, 330.5);
  EXPECT_EQ(association.seaz, -999.0);
  EXPECT_EQ(association.time_residual, -1.5);
  EXPECT_EQ(association.azimuth_residual, -2.5);
  EXPECT_EQ(association.slowness_residual, -0.5);
  EXPECT_EQ(association.time_used, 'd');
  EXPECT_EQ(association.azimuth_used, 'd');
  EXPECT_EQ(association.slowness_used, 'n');
  EXPECT_EQ(association.weight, 0.75);
  const std::vector<StationMagnitude> &magnitudes = event.origins[1].station_magnitudes;
  ASSERT_THAT(magnitudes, SizeIs(2));
  EXPECT_EQ(magnitudes[0].value, 4.6);
  EXPECT_EQ(magnitudes[0].magnitude, 0);
  EXPECT_EQ(magnitudes[0].pick, 0);
  EXPECT_EQ(magnitudes[1].type, "MS");
  EXPECT_EQ(magnitudes[1].pick, -1) << "its phase has no time";
}

/* The comments of the 1976 Yunnan type: a vertical strike-slip tensor of 2e18 N m. */
TEST(IsfReader, GivesMechanismsOfFormattedComments) {
  const ReadEvents result = read_events(replaced(
      kBulletin, " (Felt at sea)\n",
      " (#CENTROID)\n"
      " (#MOMTENS sc    M0 fCLVD    MRR    MTT    MPP    MRT    MTP    MPR NST1 NST2 "
      "Author   )\n"
      " (#             eM0 eCLVD    eRR    eTT    ePP    eRT    eTP    ePR NCO1 NCO2 "
      "Duration )\n"
      " (#        18 2.000 0.125  0.100  0.200 -0.300  0.400 -2.000  0.500   12   14 "
      "GCMT     )\n"
      " (#                        0.050  0.050  0.050  0.140  0.050  0.130   31   29   "
      "  "
      "3.50 )\n"
      " (#FAULT_PLANE Typ Strike   Dip    Rake  NP  NS Plane Author   )\n"
      " (#            BDC   0.00 90.00    5.00               GCMT     )\n"
      " (+                111.00 89.00 -175.00                        )\n"
      " (#PRINAX sc  T_val T_azim  T_pl  B_val B_azim  B_pl  P_val P_azim  P_pl Author "
      "  "
      ")\n"
      " (#       18  2.000 135.00  1.00  0.100  10.00 88.00 -2.100 225.00  2.00 GCMT   "
      "  "
      ")\n"
      " (#FAULT_PLANE Typ Strike   Dip    Rake  NP  NS Plane Author   )\n"
      " (#            FM   10.00 20.00   30.00  33  22       ISC      )\n"));
  EXPECT_THAT(result.refused, IsEmpty());
  ASSERT_THAT(result.events, SizeIs(1));
  const std::vector<MomentTensor> &tensors = result.events[0].origins[1].tensors;
  ASSERT_THAT(tensors, SizeIs(2));
  EXPECT_THAT(tensors[0].elements,
              ElementsAre(0.1e18, 0.2e18, -0.3e18, 0.4e18, 0.5e18, -2e18));
  EXPECT_NEAR(tensors[0].moment, 2e18, 1e6);
  EXPECT_NEAR(tensors[0].mw, 6.134, 1e-3) << "(log10 2e18 - 9.1) / 1.5";
  EXPECT_EQ(tensors[0].clvd, 12.5);
  EXPECT_EQ(tensors[0].stations, 14);
  EXPECT_EQ(tensors[0].components, 60);
  EXPECT_THAT(tensors[0].plane1, ElementsAre(0.0, 90.0, 5.0));
  EXPECT_THAT(tensors[0].plane2, ElementsAre(111.0, 89.0, -175.0));
  EXPECT_THAT(tensors[0].axes,
              ElementsAre(2e18, 1.0, 135.0, 0.1e18, 88.0, 10.0, -2.1e18, 2.0, 225.0));
  EXPECT_EQ(tensors[0].lat, -12.625) << "of the centroid";
  EXPECT_EQ(tensors[1].author, "ISC");
  EXPECT_THAT(tensors[1].plane1, ElementsAre(10.0, 20.0, 30.0));
  EXPECT_EQ(tensors[1].elements[0], -999.0);
}

TEST(IsfReader, AFaultCostsOneLine) {
  const auto refusal = [](const std::string &from, const std::string &to) {
    const ReadEvents result = read_events(replaced(kBulletin, from, to));
    EXPECT_LE(result.events.size(), 1U);
    return result.refused.empty() ? std::string() : result.refused[0];
  };
  EXPECT_EQ(refusal("-12.5000", "-92.5000"), "9: latitude is '-92.5000'");
  EXPECT_EQ(refusal(" 170.2500", "     east"), "9: longitude is 'east'");
  EXPECT_EQ(refusal("  12   10", "  -2   10"), "10: Ndef is '-2'");
  EXPECT_EQ(refusal("23:59:30", "23:61:30"), "9: time is '2001/02/03 23:61:30.25'");
  EXPECT_EQ(refusal("mb     4.5 0.2", "mb     4x5 0.2"), "15: magnitude is '4x5'");
  EXPECT_EQ(refusal(" 10.25 330.5", "270.25 330.5"), "19: distance is '270.25'");
  EXPECT_EQ(refusal("00:02:03.125", "00:02:03.1z5"), "19: time is '00:02:03.1z5'");
  EXPECT_EQ(refusal("  -1.5 150.5", "   nan 150.5"), "19: time residual is 'nan'");
  EXPECT_EQ(refusal("CCC           9001", "CCC           9009"), "25: ArrID is '9009'");
  EXPECT_EQ(refusal("Date       Time        Err", "Date       Time       Err "),
            "8: the columns of the origin block are not those of ISF");
  EXPECT_EQ(refusal("\nSTOP\n", "\n"),
            "26: the message ends without STOP: it is cut off");
  EXPECT_THAT(refusal("BULLETIN IMS1.0:long", "BULLETIN ISF2.1:long"),
              HasSubstr("4: bulletins of ISF2.1:long have other columns"));
  /* Without BEGIN, and without any line around the event. */
  for (const char *first : {"DATA_TYPE", "Event"}) {
    const std::string text = kBulletin.substr(kBulletin.find(first));
    const ReadEvents cut = read_events(text.substr(0, text.find("23:59:50") + 5));
    ASSERT_THAT(cut.refused, SizeIs(1)) << first;
    EXPECT_THAT(cut.refused[0], HasSubstr("the line is cut off"));
    EXPECT_THAT(cut.events[0].picks, SizeIs(1));
    const ReadEvents whole = read_events(text.substr(0, text.find("9002") + 4));
    EXPECT_EQ(whole.refused.empty(), first == std::string("Event"));
  }
  /* The other origin and the phases stay. */
  const ReadEvents result = read_events(replaced(kBulletin, "-12.5000", "-92.5000"));
  ASSERT_THAT(result.events, SizeIs(1));
  EXPECT_THAT(result.events[0].origins, SizeIs(1));
  EXPECT_THAT(result.events[0].picks, SizeIs(2));
  EXPECT_THAT(result.events[0].origins[0].magnitudes, SizeIs(2))
      << "the magnitude of the refused origin";
}

/* The same event must keep its id whatever stands before it. */
TEST(IsfReader, NamesTheSourceOfAnEvent) {
  const std::string event = kBulletin.substr(kBulletin.find("Event "));
  const std::string isc = replaced(event, "se BBB", "se ISC");
  const auto id = [](const std::string &text) {
    const ReadEvents result = read_events(text);
    return result.events.empty() ? std::string() : result.events[0].id;
  };
  EXPECT_EQ(id("DATA_TYPE BULLETIN IMS1.0:short\nISC Bulletin\n" + event), "ISC:4711");
  EXPECT_EQ(id("DATA_TYPE EVENT IMS1.0\nReviewed Event Bulletin (REB) of the XIDC for "
               "today\n" +
               event),
            "XIDC:4711");
  EXPECT_EQ(id(isc), "ISC:4711");
  EXPECT_EQ(id(event), "isf:4711");
}

TEST(IsfReader, ReadsSeveralMessagesAndSkipsOtherData) {
  const ReadEvents result = read_events(
      replaced(kBulletin, "DATA_TYPE BULLETIN",
               "DATA_TYPE ARRIVAL IMS1.0\nEvent 1 no bulletin\nDATA_TYPE BULLETIN") +
      "\n\n" + replaced(kBulletin, "4711", "4712"));
  EXPECT_THAT(result.refused, IsEmpty());
  ASSERT_THAT(result.events, SizeIs(2));
  EXPECT_EQ(result.events[1].id, "BBB:4712");
}

TEST(IsfReader, SurvivesTruncation) { check_truncations(kBulletin); }

TEST(IsfReader, RefusesAnEventThatIsTooLong) {
  std::string text = kBulletin.substr(0, kBulletin.find("\nMagnitude"));
  for (int i = 0; i < 200001; i++) text += " (c)\n";
  const ReadEvents result = read_events(text + kBulletin);
  ASSERT_THAT(result.events, SizeIs(1));
  EXPECT_THAT(result.refused, ElementsAre("6: the event has more than 200000 lines"));
}

}  // namespace
}  // namespace ksutil::exchange
