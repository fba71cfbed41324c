/* GSE2.0 bulletins, Nordic files, NonLinLoc locations and phase files: columns, axes and
 * days that are wrong give plausible values of something else. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "formats/exchange/error_ellipse.h"
#include "tests/formats/exchange/reading.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kGse =
    "BEGIN GSE2.0\n"
    "MSG_TYPE DATA\n"
    "MSG_ID example XIDC\n"
    "DATA_TYPE BULLETIN GSE2.0\n"
    "Reviewed Event Bulletin\n"
    "EVENT 280435\n"
    "   Date       Time       Latitude Longitude    Depth    Ndef Nsta Gap    Mag1  N  "
    "  "
    "Mag2  N    Mag3  N  Author          ID\n"
    "       rms   OT_Error      Smajor Sminor Az        Err   mdist  Mdist     Err     "
    "  "
    " Err        Err     Quality\n"
    "\n"
    "1996/03/04 05:06:07.8f    10.5000  -20.2500     15.0f      6    5 120  mb 4.1  3  "
    "  "
    "         MS 3.9  2  XIDC           501\n"
    "      0.85   +-  2.25      20.5    8.5  45     +-  3.5   11.25  80.00   +-0.3     "
    "  "
    "          +-0.4     a g kx\n"
    "\n"
    "A REGION\n"
    "Sta    Dist   EvAz     Phase       Date      Time     TRes  Azim  AzRes  Slow  "
    "SRes "
    "Def  SNR        Amp   Per   Mag1   Mag2 Arr ID\n"
    "STA1   11.25 200.5 ade P       1996/03/04 05:08:09.5   0.5 205.0    4.5  12.5  "
    "-0.5 "
    "TAS   9.5      15.5  0.50 mb 4.2 ML 4.3     7001\n"
    "STA2                   S       1996/03/04 05:10:09.5                              "
    "  "
    " A                                          7002\n"
    "\n"
    "STOP\n";

TEST(GseReader, GivesOriginAndPhases) {
  const ReadEvents result = read_events(kGse);
  EXPECT_EQ(result.format, "gse");
  EXPECT_THAT(result.refused, IsEmpty());
  ASSERT_THAT(result.events, SizeIs(1));
  const Event &event = result.events[0];
  EXPECT_EQ(event.id, "XIDC:280435");
  EXPECT_EQ(event.place, "A REGION");
  EXPECT_EQ(event.type, "experimental explosion");
  const Origin &origin = event.origins.at(0);
  EXPECT_NEAR(origin.time, 825915967.8, 1e-5);
  EXPECT_EQ(origin.lat, 10.5);
  EXPECT_EQ(origin.lon, -20.25);
  EXPECT_EQ(origin.depth, 15.0);
  EXPECT_EQ(origin.depth_type, 'g');
  EXPECT_EQ(origin.phases, 6);
  EXPECT_EQ(origin.gap, 120.0);
  EXPECT_EQ(origin.id, "XIDC:501");
  EXPECT_EQ(origin.rms, 0.85);
  EXPECT_EQ(origin.time_error, 2.25);
  EXPECT_EQ(origin.major_axis, 20.5);
  EXPECT_EQ(origin.minor_axis, 8.5);
  EXPECT_EQ(origin.ellipse_strike, 45.0);
  EXPECT_EQ(origin.depth_error, 3.5);
  EXPECT_EQ(origin.nearest, 11.25);
  EXPECT_EQ(origin.status, "automatic");
  EXPECT_EQ(origin.algorithm, "ground truth");
  ASSERT_THAT(origin.magnitudes, SizeIs(2));
  EXPECT_EQ(origin.magnitudes[0].error, 0.3);
  EXPECT_EQ(origin.magnitudes[1].type, "MS");
  EXPECT_EQ(origin.magnitudes[1].stations, 2);
  EXPECT_EQ(origin.magnitudes[1].error, 0.4) << "Mag3, with no Mag2 before it";
  ASSERT_THAT(event.picks, SizeIs(2));
  const Pick &pick = event.picks[0];
  EXPECT_EQ(pick.id, "XIDC:7001");
  EXPECT_NEAR(pick.time, 825916089.5, 1e-5);
  EXPECT_TRUE(pick.automatic);
  EXPECT_THAT(result.unplaced, testing::Contains("marks of automatic picks: 1"));
  EXPECT_EQ(pick.first_motion, 'd');
  EXPECT_EQ(pick.onset, 'e');
  EXPECT_EQ(pick.azimuth, 205.0);
  EXPECT_EQ(pick.slowness, 12.5);
  EXPECT_EQ(pick.snr, 9.5);
  EXPECT_EQ(pick.amplitude, 15.5);
  EXPECT_EQ(pick.period, 0.5);
  const Association &first = origin.associations.at(0),
                    &second = origin.associations[1];
  EXPECT_EQ(first.delta, 11.25);
  EXPECT_EQ(first.seaz, 200.5) << "EvAz leads from the station to the event";
  EXPECT_EQ(first.esaz, -999.0);
  EXPECT_EQ(first.time_residual, 0.5);
  EXPECT_EQ(first.azimuth_residual, 4.5);
  EXPECT_EQ(first.slowness_residual, -0.5);
  EXPECT_EQ(second.time_used, 'n');
  EXPECT_EQ(second.azimuth_used, 'd');
  ASSERT_THAT(origin.station_magnitudes, SizeIs(2));
  EXPECT_EQ(origin.station_magnitudes[0].value, 4.2);
  EXPECT_EQ(origin.station_magnitudes[0].magnitude, 0);
  EXPECT_EQ(origin.station_magnitudes[1].type, "ML");
}

TEST(GseReader, AFaultOrAnEarlyEndCostsWhatIsMissing) {
  const auto refused = [](const std::string &from, const std::string &to) {
    return read_events(replaced(kGse, from, to)).refused;
  };
  EXPECT_THAT(refused("  15.5  0.50", "  15,5  0.50"),
              ElementsAre("15: amplitude is '15,5'"));
  EXPECT_THAT(refused("+-  2.25", "+- -2.25"), ElementsAre("11: OT_Error is '-2.25'"));
  EXPECT_THAT(refused("10.5000", "1o.5000"),
              ElementsAre("10: latitude is '1o.5000'",
                          "6: the event has no origin that can be used"));
  EXPECT_THAT(refused("STOP\n", ""),
              ElementsAre("17: the message ends without STOP: it is cut off"));
  const ReadEvents cut = read_events(kGse.substr(0, kGse.find("\nSTA2") + 49));
  ASSERT_THAT(cut.events, SizeIs(1));
  EXPECT_THAT(cut.events[0].picks, SizeIs(1)) << "16:05:10:0 is not the time of S";
  EXPECT_THAT(cut.refused, ElementsAre("16: the line is cut off"));
  EXPECT_THAT(read_events(replaced(kGse, "BEGIN GSE2.0", "BEGIN GSE1.0")).problem,
              HasSubstr("GSE1"));
  check_truncations(kGse);
}

/* ---- Nordic ---- */

const std::string kNordicHead =
    " 2016  911 2359 54.9 LE-37.345 178.756 25.0F TES  5 0.6 1.5LTES 1.7CTES 1.9bABC1\n"
    " 2016  911 2359      L                       TES        2.1WTES                1\n"
    " 2016  911 2359 55.4 L -37.500 178.500       OTH                               1\n"
    " GAP=319        1.50       2.0     3.0  4.0  0.1000E+01  0.2000E+01  0.3000E+01E\n"
    "      12.5      45.0     -90.0                                    TES FPFIT    F\n"
    " ACTION:ARG 16-10- 4 16: 9 OP:EW-S STATUS:               ID:20160912000015     I\n"
    " LOCALITY: Off the cape                                                        3\n"
    " wave.file                                                                     "
    "6\n";
const std::string kNordicOld =
    " STAT SP IPHASW D HRMM SECON CODA AMPLIT PERI AZIMU VELO AIN AR TRES W  DIS CAZ7\n"
    " FOZ  HZ IP   1AC 24 0  3.33                  267.0  8.0 101  5-0.7810 46.7 238 \n"
    " LBZ  EZ2EPKiKPpre24 0  6.73                                    9.99 0          \n"
    " WVZ  HZ  IAML    24 1 11.81        12.5 0.25                                   "
    "\n";
const std::string kNordicNew =
    " STAT COM NTLO IPHASE   W HHMM SS.SSS   PAR1  PAR2 AGA OPE  AIN  RES W  DIS CAZ7\n"
    " BER  HHZ NS00 IP        A2359 59.140      D       BER abc107.0-0.16 5 30.9 353 \n"
    " BER  HHZ NS00  BAZ-P     2359 59.140  172.5   7.0              -2.5   30.9 353 \n"
    " BER  HHZ NS00  IAML      2400  3.500   47.3  0.22              0.21   30.9 353 "
    "\n";
/* 2016-09-12T00:00:00 */
constexpr double kNextDay = 1473638400.0;
constexpr double kDegree = 111.195;  // km

TEST(NordicReader, GivesOriginsOfAgencies) {
  const ReadEvents result = read_events(kNordicHead + kNordicOld + "\n");
  EXPECT_EQ(result.format, "nordic");
  EXPECT_THAT(result.refused, IsEmpty());
  ASSERT_THAT(result.events, SizeIs(1));
  const Event &event = result.events[0];
  EXPECT_EQ(event.id, "TES:20160912000015");
  EXPECT_EQ(event.place, "Off the cape");
  EXPECT_EQ(event.type, "explosion");
  EXPECT_NEAR(event.updated, 1475597340.0, 1e-6) << "2016-10-04T16:09";
  ASSERT_THAT(event.origins, SizeIs(2));
  const Origin &origin = event.origins[0];
  EXPECT_NEAR(origin.time, kNextDay - 5.1, 1e-5);
  EXPECT_EQ(origin.lat, -37.345);
  EXPECT_EQ(origin.lon, 178.756);
  EXPECT_EQ(origin.depth, 25.0);
  EXPECT_EQ(origin.depth_type, 'g');
  EXPECT_EQ(origin.rms, 0.6);
  EXPECT_EQ(origin.gap, 319.0);
  EXPECT_EQ(origin.time_error, 1.5);
  EXPECT_EQ(origin.depth_error, 4.0);
  /* Their x is east: 2 km of latitude are the variance of our x. */
  EXPECT_EQ(origin.covariance.xx, 4.0);
  EXPECT_EQ(origin.covariance.yy, 9.0);
  EXPECT_EQ(origin.covariance.zz, 16.0);
  EXPECT_EQ(origin.covariance.xy, 1.0);
  EXPECT_EQ(origin.covariance.yz, 2.0);
  EXPECT_EQ(origin.covariance.xz, 3.0);
  std::vector<std::string> magnitudes;
  for (const Magnitude &m : origin.magnitudes) magnitudes.push_back(m.type + m.author);
  EXPECT_THAT(magnitudes, ElementsAre("MLTES", "McTES", "mbABC", "MWTES"));
  EXPECT_EQ(origin.magnitudes[3].value, 2.1) << "of a further line of the agency";
  EXPECT_THAT(origin.tensors.at(0).plane1, ElementsAre(12.5, 45.0, -90.0));
  EXPECT_EQ(event.origins[1].author, "OTH");
  EXPECT_EQ(event.origins[1].lat, -37.5);
  EXPECT_EQ(event.origins[1].depth, -999.0);
}

TEST(NordicReader, GivesPhasesOfBothForms) {
  const ReadEvents old_form = read_events(kNordicHead + kNordicOld + "\n");
  ASSERT_THAT(old_form.events, SizeIs(1));
  const Event &event = old_form.events[0];
  ASSERT_THAT(event.picks, SizeIs(3));
  const Pick &pick = event.picks[0];
  EXPECT_NEAR(pick.time, kNextDay + 3.33, 1e-5) << "hour 24 is the next day";
  EXPECT_EQ(pick.phase, "P");
  EXPECT_EQ(pick.onset, 'i');
  EXPECT_EQ(pick.first_motion, 'c');
  EXPECT_TRUE(pick.automatic);
  EXPECT_EQ(pick.azimuth, 267.0);
  EXPECT_NEAR(pick.slowness, kDegree / 8.0, 1e-9);
  const Association &association = event.origins[0].associations.at(0);
  EXPECT_EQ(association.azimuth_residual, 5.0);
  EXPECT_EQ(association.time_residual, -0.78);
  EXPECT_EQ(association.weight, 1.0);
  EXPECT_EQ(association.time_used, 'd');
  EXPECT_NEAR(association.delta, 46.7 / kDegree, 1e-9);
  EXPECT_EQ(association.esaz, 238.0);
  EXPECT_EQ(event.picks[1].phase, "PKiKPpre") << "a long name takes weight and motion";
  EXPECT_EQ(event.origins[0].associations[1].time_used, 'n');
  EXPECT_EQ(event.picks[2].phase, "IAML");
  EXPECT_EQ(event.picks[2].amplitude, 12.5);
  EXPECT_EQ(event.picks[2].period, 0.25);

  const ReadEvents new_form = read_events(kNordicHead + kNordicNew + "\n");
  EXPECT_THAT(new_form.refused, IsEmpty());
  ASSERT_THAT(new_form.events, SizeIs(1));
  ASSERT_THAT(new_form.events[0].picks, SizeIs(2)) << "the azimuth joins its phase";
  const Pick &p = new_form.events[0].picks[0], &a = new_form.events[0].picks[1];
  EXPECT_EQ(p.at.network + p.at.station + p.at.location + p.at.channel, "NSBER00HHZ");
  EXPECT_NEAR(p.time, kNextDay - 0.86, 1e-5);
  EXPECT_EQ(p.first_motion, 'd');
  EXPECT_TRUE(p.automatic);
  EXPECT_EQ(p.author, "BER");
  EXPECT_EQ(p.azimuth, 172.5);
  EXPECT_NEAR(p.slowness, kDegree / 7.0, 1e-9);
  const std::vector<Association> &associations =
      new_form.events[0].origins[0].associations;
  EXPECT_EQ(associations.at(0).time_residual, -0.16);
  EXPECT_EQ(associations[0].azimuth_residual, -2.5);
  EXPECT_EQ(associations[0].weight, 0.5);
  EXPECT_EQ(a.amplitude, 47.3);
  EXPECT_EQ(a.period, 0.22);
  EXPECT_EQ(associations[1].time_residual, -999.0)
      << "what stands there is a magnitude's";
  EXPECT_THAT(new_form.unplaced,
              testing::IsSupersetOf({"marks of automatic picks: 1",
                                     "residuals of station magnitudes: 1"}));
}

TEST(NordicReader, TakesTheDigitsOfTheLineH) {
  const std::string precise =
      " 2016  911 2359 54.925 -37.34567  178.75678   25.125  0.625                    "
      "H\n";
  const std::string first = kNordicHead.substr(0, 81);
  const ReadEvents result = read_events(first + precise + kNordicOld);
  ASSERT_THAT(result.events, SizeIs(1));
  const Origin &origin = result.events[0].origins.at(0);
  EXPECT_NEAR(origin.time, kNextDay - 5.075, 1e-6);
  EXPECT_EQ(origin.lat, -37.34567);
  EXPECT_EQ(origin.lon, 178.75678);
  EXPECT_EQ(origin.depth, 25.125);
  EXPECT_EQ(origin.rms, 0.625);
  EXPECT_EQ(result.events[0].id, "TES:201609112359549") << "no line I: the origin time";
}

TEST(NordicReader, AFaultyPickIsRefusedAlone) {
  std::string text = replaced(kNordicHead + kNordicOld, "24 0  6.73", "2x 0  6.73");
  text = replaced(text, "24 1 11.81", "24 1      ");
  const ReadEvents result = read_events(text + "\n" + kNordicHead + kNordicNew);
  EXPECT_THAT(result.refused, ElementsAre("11: hour is '2x'", "12: seconds is ''"));
  ASSERT_THAT(result.events, SizeIs(2));
  EXPECT_THAT(result.events[0].picks, SizeIs(1));
  EXPECT_THAT(result.events[1].picks, SizeIs(2));
  EXPECT_THAT(read_events(replaced(kNordicHead, "-37.345", "-97.345")).refused,
              ElementsAre("1: latitude is '-97.345'"))
      << "the origin of the other agency remains";
  check_truncations(kNordicHead + kNordicOld + "\n" + kNordicHead + kNordicNew + "\n");
}

/* The first digits of a time that is cut off are another time. */
TEST(NordicReader, RefusesALineThatIsCutOffAndTakesTrimmedOnes) {
  const std::string text = kNordicHead + kNordicOld;
  const ReadEvents cut = read_events(text.substr(0, text.find(" FOZ") + 26));
  EXPECT_THAT(cut.refused, ElementsAre("10: the line is cut off"));
  ASSERT_THAT(cut.events, SizeIs(1));
  EXPECT_THAT(cut.events[0].picks, SizeIs(0));
  const ReadEvents whole = read_events(text.substr(0, text.size() - 1));
  EXPECT_THAT(whole.refused, SizeIs(0));
  EXPECT_THAT(whole.events[0].picks, SizeIs(3));

  const std::string short_lines = kNordicHead +
                                  " FOZ  HZ IP   1AC 24 0  3.33\n"
                                  " LBZ  HZ IP   1AC 24 0  6.73";
  const ReadEvents short_ones = read_events(short_lines);
  EXPECT_THAT(short_ones.refused, SizeIs(0));
  EXPECT_THAT(short_ones.events[0].picks, SizeIs(2));
  EXPECT_THAT(read_events(short_lines.substr(0, short_lines.size() - 1)).refused,
              ElementsAre("10: the line is cut off"));
}

TEST(NordicReader, TellsEventsOfAListApart) {
  const std::string first = kNordicHead.substr(0, 81);
  const ReadEvents result = read_events(
      first + replaced(first, "2359 54.9", "2358  4.9") +
      replaced(replaced(first, "2016  911", "2016  913"), "LE", "R ") + first);
  ASSERT_THAT(result.events, SizeIs(3));
  EXPECT_THAT(result.events[0].origins, SizeIs(2))
      << "within ten minutes: another origin";
  EXPECT_EQ(result.events[1].type, "");
}

/* ---- NonLinLoc ---- */

const std::string kLocated =
    "NLLOC \"./loc/area.20060715.172120.grid0\" \"LOCATED\" \"Location completed.\"\n"
    "SIGNATURE \"A. Seismologist   NLLoc:v6.02.07 21Jun2013 12h53m34\"\n"
    "COMMENT \"Area\"\n"
    "GRID  105 105 55  -5 -5 -0.5  0.1 0.1 0.1 PROB_DENSITY\n"
    "HYPOCENTER  x -0.4 y 0.15 z 1.43  OT 20.1  ix -1 iy -1 iz -1\n"
    "GEOGRAPHIC  OT 2006 07 15  23 59 50.25  Lat 51.65 Long 7.75 Depth 1.5\n"
    "QUALITY  Pmax 4e+31 MFmin 27 MFmax 28 RMS 0.125 Nphs 11 Gap 156.5 Dist 1.11195 "
    "Mamp "
    "2.5 3 Mdur -9.9 0\n"
    "STATISTICS  ExpectX -1.3 Y -0.04 Z 3.1  CovXX 9.0 XY 1.0 XZ 2.0 YY 4.0 YZ 3.0 ZZ "
    "16.0 "
    "EllAz1 331 Dip1 -13 Len1 1.3 Az2 229 Dip2 -40 Len2 1.7 Len3 2.5e+00\n"
    "TRANSFORM  SIMPLE LatOrig 51.6  LongOrig 7.7  RotCW 0.000000\n"
    "QML_OriginQuality  assocPhCt 5  usedPhCt 5  assocStaCt -1  usedStaCt 5  depthPhCt "
    "-1  "
    "stdErr 0.1\n"
    "QML_OriginUncertainty  horUnc -1  minHorUnc 1.5  maxHorUnc 2.5  azMaxHorUnc 69.5\n"
    "FOCALMECH  Hyp  51.65 7.75 1.5 Mech  110 60 -90 mf  0.1 nObs 12\n"
    "PHASE ID Ins Cmp On Pha  FM Date     HrMn   Sec     Err  ErrMag    Coda      Amp  "
    "    "
    " Per  >   TTpred    Res       Weight    StaLoc(X  Y         Z)        SDist    "
    "SAzim  "
    "RAz  RDip RQual    Tcorr\n"
    "HM02   ?    HHZ  I P      U 20060715 2359  70.50 GAU  0.05  -1  -1  -1 >  0.44 "
    "-0.25 "
    " 1.25  -0.05  0.02  0.0  11.1195 109.5 359.0  -1.0  0  0.0\n"
    "HM03   ?    ?    ? S      ? 20060715 2400   5.50 GAU -1.00  -1  -1  -1 >  0.00  "
    "0.00 "
    " 0.00 -1e20 -1e20 -1e20  0.0000  0.00 359.0  -1.0  0  0.0\n"
    "END_PHASE\n"
    "END_NLLOC\n";

TEST(NonLinLocReader, TurnsAxesAndDistances) {
  const ReadEvents result = read_events(kLocated);
  EXPECT_EQ(result.format, "nonlinloc");
  EXPECT_THAT(result.refused, IsEmpty());
  ASSERT_THAT(result.events, SizeIs(1));
  const Event &event = result.events[0];
  EXPECT_EQ(event.id, "nll:area.20060715.172120");
  EXPECT_NEAR(event.updated, 1371819214.0, 1e-6) << "2013-06-21T12:53:34";
  const Origin &origin = event.origins.at(0);
  EXPECT_EQ(origin.author, "A. Seismologist");
  EXPECT_EQ(origin.algorithm, "NLLoc:v6.02.07");
  EXPECT_NEAR(origin.time, 1153007990.25, 1e-5);
  EXPECT_EQ(origin.lat, 51.65);
  EXPECT_EQ(origin.depth, 1.5);
  EXPECT_EQ(origin.phases, 11);
  EXPECT_EQ(origin.associated, 5);
  EXPECT_EQ(origin.depth_phases, -1);
  EXPECT_NEAR(origin.nearest, 0.01, 1e-9);
  EXPECT_EQ(origin.major_axis, 2.5);
  EXPECT_EQ(origin.ellipse_strike, 69.5);
  ASSERT_THAT(origin.magnitudes, SizeIs(1)) << "-9.9 is not a magnitude";
  EXPECT_EQ(origin.magnitudes[0].stations, 3);
  /* Their x is east and their y north; ours the other way round. */
  EXPECT_NEAR(origin.covariance.xx, 4.0, 1e-12);
  EXPECT_NEAR(origin.covariance.yy, 9.0, 1e-12);
  EXPECT_NEAR(origin.covariance.xy, 1.0, 1e-12);
  EXPECT_NEAR(origin.covariance.xz, 3.0, 1e-12);
  EXPECT_NEAR(origin.covariance.yz, 2.0, 1e-12);
  EXPECT_EQ(origin.depth_error, 4.0);
  EXPECT_THAT(origin.tensors.at(0).plane1, ElementsAre(20.0, 60.0, -90.0))
      << "the dip direction is 90 degrees to the right of the strike";
  ASSERT_THAT(event.picks, SizeIs(2));
  EXPECT_NEAR(event.picks[0].time, 1153008010.5, 1e-5) << "second 70 of 23:59";
  EXPECT_NEAR(event.picks[1].time, 1153008005.5, 1e-5) << "hour 24";
  EXPECT_EQ(event.picks[0].time_error, 0.05);
  EXPECT_EQ(event.picks[0].first_motion, 'c');
  EXPECT_EQ(event.picks[1].at.channel, "");
  const Association &known = origin.associations.at(0),
                    &unknown = origin.associations[1];
  EXPECT_NEAR(known.delta, 0.1, 1e-9);
  EXPECT_EQ(known.esaz, 109.5);
  EXPECT_EQ(known.time_residual, -0.25);
  EXPECT_EQ(known.weight, 1.25) << "weights may be above 1";
  EXPECT_EQ(unknown.delta, -1.0) << "a station without a place";
  EXPECT_EQ(unknown.time_residual, -999.0);
  EXPECT_EQ(unknown.time_used, 'n');
}

/* RotCW is the angle from their y clockwise to north, as the description of the control
 * file has it. */
TEST(NonLinLocReader, TurnsTheAxesOfRotatedGrids) {
  const auto covariance = [](const std::string &text) {
    return read_events(text).events.at(0).origins[0].covariance;
  };
  /* y points west and x north. */
  const Covariance turned = covariance(replaced(kLocated, "RotCW 0.0", "RotCW 90.0"));
  EXPECT_NEAR(turned.xx, 9.0, 1e-9);
  EXPECT_NEAR(turned.yy, 4.0, 1e-9);
  EXPECT_NEAR(turned.xy, -1.0, 1e-9);
  EXPECT_NEAR(turned.xz, 2.0, 1e-9);
  EXPECT_NEAR(turned.yz, -3.0, 1e-9);
  /* The major axis is y, which points 30 degrees west of north. */
  const Covariance tilted =
      covariance(replaced(replaced(kLocated, "RotCW 0.0", "RotCW 30.0"),
                          "CovXX 9.0 XY 1.0 XZ 2.0 YY 4.0 YZ 3.0",
                          "CovXX 1.0 XY 0.0 XZ 0.0 YY 4.0 YZ 0.0"));
  EXPECT_NEAR(tilted.xy, -0.75 * std::sqrt(3.0), 1e-9);
  EXPECT_NEAR(ellipse_of(tilted, 0.9).strike, 150.0, 1e-9);
}

TEST(NonLinLocReader, RefusesWhatIsNotALocation) {
  const std::string rejected = replaced(kLocated, "\"LOCATED\" \"Location completed.\"",
                                        "\"REJECTED\" \"WARNING: too far\"");
  std::string faulty = replaced(kLocated, "area.", "second.");
  faulty =
      replaced(replaced(faulty, "70.50 GAU", "7o.50 GAU"), "Gap 156.5", "Gap 556.5");
  const ReadEvents result =
      read_events(rejected + kLocated + "PUBLIC_ID smi:x/1\n" + faulty +
                  replaced(kLocated, "SIGNATURE", "PUBLIC_ID smi:local/7\nSIGNATURE") +
                  kLocated.substr(0, kLocated.find("END_PHASE")));
  ASSERT_THAT(result.events, SizeIs(3));
  EXPECT_EQ(result.events[1].id, "nll:second.20060715.172120");
  EXPECT_THAT(result.events[1].picks, SizeIs(1));
  EXPECT_EQ(result.events[2].id, "smi:local/7");
  EXPECT_THAT(result.refused,
              ElementsAre("1: the location is REJECTED: WARNING: too far",
                          "42: Gap is '556.5'", "49: Sec is '7o.50'",
                          "71: the location ends without END_NLLOC: it is cut off"));
  const ReadEvents observations = read_events(
      "UH1    ?    ?    ? P      ? 20100527 1656 26.1300 GAU  2.00e-02 -1.00e+00"
      " -1.00e+00 -1.00e+00\n");
  EXPECT_THAT(observations.problem, HasSubstr("NonLinLoc observations"));
  check_truncations(kLocated);
}

TEST(PhaReader, GivesPhasesByTravelTime) {
  const ReadEvents result = read_events(
      "#  2025    5   14   14   35   35.510000   40.2254   10.4496   9.408   3.5  0.0  "
      " 0.0 "
      "  0.5       20202331\n"
      "FUR   3.5000  0.5  P\n"
      "WET   5.x620  1.0  S\n"
      "WET   6.0000 -1.0  S\n"
      "#  2025   13   14   15   43    5.280000   40.2227   10.4497   9.774   1.8  0.5  "
      " 0.4 "
      "  0.3       20202429\n"
      "UBR   2.4640  0.7  P\n");
  EXPECT_EQ(result.format, "pha");
  EXPECT_THAT(result.refused,
              ElementsAre("3: travel time is '5.x620'", "5: month is '13'",
                          "6: the phase belongs to an event that was refused"));
  ASSERT_THAT(result.events, SizeIs(1));
  EXPECT_EQ(result.events[0].id, "pha:20202331");
  EXPECT_EQ(result.events[0].origins[0].rms, 0.5);
  ASSERT_THAT(result.events[0].picks, SizeIs(2));
  EXPECT_NEAR(result.events[0].picks[0].time, 1747233339.01, 1e-5);
  EXPECT_EQ(result.events[0].origins[0].associations[0].weight, 0.5);
  EXPECT_EQ(result.events[0].origins[0].associations[1].weight, 1.0);
}

}  // namespace
}  // namespace ksutil::exchange
