/* QuakeML ties an event together by ids that stand anywhere in it; a reader that loses one
 * gives magnitudes to the wrong origin and arrivals to no pick, and says nothing. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/exchange/format.h"
#include "formats/exchange/import/record_bytes.h"
#include "formats/exchange/quakeml/element_values.h"
#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "tests/tools/scratch.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Reading {
  std::vector<Event> events;
  std::vector<std::string> refused;
  std::string problem;  // why it ended early, or was not begun
  std::vector<Unplaced> without_place;
  bool lacks_place(const std::string &name) const {
    return std::any_of(without_place.begin(), without_place.end(),
                       [&](const Unplaced &left) { return left.name == name; });
  }
};

Reading read_text(const std::string &text) {
  const tools::ScratchFolder folder;
  Reading reading;
  const auto input = Input::open(folder.write("in.xml", text), reading.problem);
  if (input == nullptr) return reading;
  const auto reader = open_reader(*input, recognise(input->head()), reading.problem);
  if (reader == nullptr) return reading;
  Event event;
  for (;;) {
    switch (reader->next(event)) {
      case Reader::Got::kRecord:
        reading.events.push_back(event);
        continue;
      case Reader::Got::kRefused:
        reading.refused.push_back(std::to_string(reader->line()) + ": " +
                                  reader->problem());
        continue;
      case Reader::Got::kFailed:
        reading.problem = reader->problem();
        break;
      case Reader::Got::kEnd:
        break;
    }
    reading.without_place = reader->without_place();
    return reading;
  }
}

std::string quakeml(const std::string &events) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<q:quakeml xmlns:q=\"http://quakeml.org/xmlns/quakeml/1.2\" "
         "xmlns=\"http://quakeml.org/xmlns/bed/1.2\">\n<eventParameters "
         "publicID=\"smi:a/b\">\n" +
         events + "</eventParameters>\n</q:quakeml>\n";
}

const std::string kOrigin =
    "<time><value>2016-11-13T11:02:56.34Z</value></time>"
    "<latitude><value>-42.7</value></latitude>"
    "<longitude><value>190.5</value></longitude>"
    "<depth><value>15100</value><uncertainty>1800</uncertainty></depth>";

/* What refers to something stands before it. */
const std::string kEvent =
    "<event publicID=\"smi:a/e1\" xmlns:c=\"http://c\" c:eventid=\"x1\">\n"
    "<preferredMagnitudeID>smi:a/m1</preferredMagnitudeID>"
    "<preferredOriginID>smi:a/o2</preferredOriginID>"
    "<stationMagnitude publicID=\"smi:a/s1\"><originID>smi:a/o1</originID>"
    "<amplitudeID>smi:a/a1</amplitudeID><mag><value>6.1</value></mag></"
    "stationMagnitude>"
    "<amplitude publicID=\"smi:a/a1\"><genericAmplitude><value>2.5e-6</value>"
    "</genericAmplitude><unit>m</unit><period><value>1.5</value></period>"
    "<pickID>smi:a/p1</pickID><waveformID networkCode=\"NZ\" stationCode=\"KHZ\" "
    "locationCode=\"10\" channelCode=\"HHZ\"/></amplitude>"
    "<magnitude publicID=\"smi:a/m1\"><stationMagnitudeContribution>"
    "<stationMagnitudeID>smi:a/s1</stationMagnitudeID></stationMagnitudeContribution>"
    "<mag><value>6.2</value><uncertainty>0.1</uncertainty></mag><type>mb</type>"
    "<originID>smi:a/o2</originID><stationCount>7</stationCount></magnitude>"
    "<focalMechanism publicID=\"smi:a/f1\"><triggeringOriginID>smi:a/o2"
    "</triggeringOriginID><nodalPlanes><nodalPlane1><strike><value>226</value></strike>"
    "<dip><value>33</value></dip><rake><value>141</value></rake></nodalPlane1>"
    "</nodalPlanes><principalAxes><tAxis><azimuth><value>279</value></azimuth><plunge>"
    "<value>5</value></plunge><length><value>4e16</value></length></tAxis>"
    "</principalAxes><momentTensor publicID=\"smi:a/t1\"><derivedOriginID>smi:a/o1"
    "</derivedOriginID><momentMagnitudeID>smi:a/m1</momentMagnitudeID><scalarMoment>"
    "<value>5e16</value></scalarMoment><tensor><Mrr><value>1e16</value></Mrr><Mtt>"
    "<value>-5e16</value></Mtt><Mpp><value>4e16</value></Mpp><Mrt><value>1e14</value>"
    "</Mrt><Mrp><value>2e14</value></Mrp><Mtp><value>3e15</value></Mtp></tensor>"
    "<doubleCouple>0.49</doubleCouple><clvd>0.51</clvd><varianceReduction>87"
    "</varianceReduction><dataUsed><waveType>body waves</waveType><stationCount>4"
    "</stationCount><componentCount>12</componentCount></dataUsed><dataUsed><waveType>"
    "surface waves</waveType><stationCount>3</stationCount><componentCount>5"
    "</componentCount></dataUsed></momentTensor><evaluationMode>manual"
    "</evaluationMode></focalMechanism>"
    "<origin publicID=\"smi:a/o1\">" +
    kOrigin +
    "</origin>\n"
    "<origin publicID=\"smi:a/o2\">" +
    kOrigin +
    "<depthType>operator assigned</depthType><originUncertainty>"
    "<maxHorizontalUncertainty>6400</maxHorizontalUncertainty>"
    "<minHorizontalUncertainty>3200</minHorizontalUncertainty>"
    "<azimuthMaxHorizontalUncertainty>140</azimuthMaxHorizontalUncertainty>"
    "<confidenceLevel>90</confidenceLevel></originUncertainty><quality>"
    "<usedPhaseCount>174</usedPhaseCount><standardError>0.9</standardError>"
    "<azimuthalGap>21</azimuthalGap></quality><arrival publicID=\"smi:a/r1\"><pickID>"
    "smi:a/p1</pickID><phase>Pn</phase><azimuth>351</azimuth><distance>0.48</distance>"
    "<timeResidual>0.2</timeResidual><timeWeight>0</timeWeight></arrival><arrival>"
    "<pickID>smi:a/none</pickID><phase>P</phase></arrival><evaluationStatus>reviewed"
    "</evaluationStatus><methodID>smi:a/methods/NLL/3</methodID><comment><text>fixed "
    "&amp; felt</text></comment><creationInfo><agencyID>NZ</agencyID><creationTime>"
    "2016-11-14T00:00:00+01:30</creationTime></creationInfo></origin>\n"
    "<pick publicID=\"smi:a/p1\"><time><value>2016-11-13T11:03:06.12Z</value>"
    "<uncertainty>0.05</uncertainty></time><waveformID networkCode=\"NZ\" "
    "stationCode=\"KHZ\" locationCode=\"--\" channelCode=\"HHZ\"/><onset>emergent"
    "</onset><polarity>negative</polarity><phaseHint>P</phaseHint><evaluationMode>"
    "automatic</evaluationMode></pick>"
    "<description><text>South\n  Canterbury</text><type>region "
    "name</type></description>"
    "<description><text>Kaikoura</text><type>earthquake name</type></description>"
    "<type>quarry blast</type><typeCertainty>known</typeCertainty>\n</event>\n";

TEST(QuakemlReader, TiesTheEventTogether) {
  const Reading reading = read_text(quakeml(kEvent));
  ASSERT_EQ(reading.problem, "");
  ASSERT_EQ(reading.events.size(), 1U);
  const Event &event = reading.events[0];
  EXPECT_EQ(event.id, "smi:a/e1");
  EXPECT_EQ(event.type, "quarry blast");
  EXPECT_EQ(event.place + "/" + event.name, "South Canterbury/Kaikoura");
  EXPECT_EQ(time_text(event.updated, 0), "2016-11-13T22:30:00");
  EXPECT_EQ(event.preferred, 1U);
  EXPECT_EQ(event.preferred_magnitude, 0);
  EXPECT_EQ(event.line, 4);

  const Origin &origin = event.origins[1];
  EXPECT_EQ(time_text(origin.time, 2), "2016-11-13T11:02:56.34");
  EXPECT_EQ(origin.lon, -169.5);
  EXPECT_DOUBLE_EQ(origin.depth, 15.1);
  EXPECT_DOUBLE_EQ(origin.depth_error, 1.8);
  EXPECT_DOUBLE_EQ(origin.major_axis, 6.4);
  EXPECT_DOUBLE_EQ(origin.minor_axis, 3.2);
  EXPECT_DOUBLE_EQ(origin.confidence, 0.9);
  EXPECT_EQ(origin.depth_type, 'g');
  EXPECT_EQ(origin.phases, 174);
  EXPECT_EQ(origin.algorithm, "NLL/3");
  EXPECT_EQ(origin.author, "NZ");
  EXPECT_THAT(origin.comments, ElementsAre("fixed & felt"));
  ASSERT_EQ(origin.associations.size(), 1U);
  EXPECT_EQ(origin.associations[0].pick, 0);
  EXPECT_EQ(origin.associations[0].time_used, 'n');
  EXPECT_EQ(origin.associations[0].esaz, 351.0);
  EXPECT_TRUE(reading.lacks_place("an arrival whose pick is not there"));

  const Pick &pick = event.picks[0];
  EXPECT_EQ(pick.at.location, "");
  EXPECT_EQ(std::string({pick.onset, pick.first_motion}), "ed");
  EXPECT_TRUE(pick.automatic);
  EXPECT_DOUBLE_EQ(pick.amplitude, 2500.0);
  EXPECT_EQ(pick.period, 1.5);

  ASSERT_EQ(origin.magnitudes.size(), 1U);
  EXPECT_EQ(origin.magnitudes[0].stations, 7);
  /* It goes with the magnitude that it contributed to, whatever its own origin. */
  ASSERT_EQ(origin.station_magnitudes.size(), 1U);
  EXPECT_EQ(origin.station_magnitudes[0].magnitude, 0);
  EXPECT_EQ(origin.station_magnitudes[0].type, "mb");
  EXPECT_EQ(origin.station_magnitudes[0].at.location, "10");
  EXPECT_EQ(origin.station_magnitudes[0].pick, 0);

  ASSERT_EQ(origin.tensors.size(), 1U);
  const MomentTensor &tensor = origin.tensors[0];
  EXPECT_EQ(tensor.id, "smi:a/t1");
  EXPECT_EQ(tensor.time, event.origins[0].time);
  EXPECT_EQ(tensor.mw, 6.2);
  EXPECT_EQ(tensor.magnitude, 0);
  EXPECT_EQ(tensor.elements[5], 3e15);
  EXPECT_EQ(tensor.axes[0], 4e16);
  EXPECT_EQ(tensor.plane1[2], 141.0);
  EXPECT_EQ(tensor.plane2[0], -999.0);
  EXPECT_DOUBLE_EQ(tensor.double_couple, 49.0);
  EXPECT_EQ(tensor.stations, 4);
  EXPECT_EQ(tensor.components, 17);

  for (const char *name :
       {"event/typeCertainty", "focalMechanism/momentTensor/dataUsed/waveType"}) {
    EXPECT_TRUE(reading.lacks_place(name)) << name;
  }
}

TEST(QuakemlReader, RefusesAnEventAloneAndNamesTheValue) {
  const std::string bare = "<event publicID=\"smi:a/e2\"></event>\n";
  const std::string bad =
      "<event publicID=\"smi:a/e3\"><origin publicID=\"o\"><time><value>soon</value>"
      "</time></origin></event>\n";
  const std::string far =
      "<event publicID=\"smi:a/e4\"><origin publicID=\"o\"><latitude><value>91</value>"
      "</latitude></origin></event>\n";
  const std::string nameless = "<event><origin>" + kOrigin + "</origin></event>";
  const Reading reading = read_text(quakeml(bare + bad + far + kEvent + nameless));
  EXPECT_EQ(reading.problem, "");
  EXPECT_THAT(reading.refused, ElementsAre("4: the event smi:a/e2 has no origin",
                                           "5: origin/time/value is 'soon'",
                                           "6: origin/latitude/value is '91'",
                                           HasSubstr("the event has no publicID")));
  EXPECT_EQ(reading.events.size(), 1U);
}

std::string with_origin(const std::string &id, const std::string &origin,
                        const std::string &rest = "") {
  return "<event publicID=\"" + id + "\"><origin publicID=\"" + id + "o\">" + origin +
         "</origin>" + rest + "</event>\n";
}

const std::string kTimeAndPlace =
    "<time><value>2016-11-13T11:02:56Z</value></time><latitude><value>-42.7</value>"
    "</latitude><longitude><value>173</value></longitude>";

/* Programs write -1 and NaN for numbers that they do not know. */
TEST(QuakemlReader, ErrorsBeyondTheirRangeCostThemselvesAlone) {
  const Reading reading = read_text(quakeml(
      with_origin("a",
                  kTimeAndPlace +
                      "<depth><value>10000</value><uncertainty>-1</uncertainty></depth>"
                      "<quality><azimuthalGap>-1</azimuthalGap><usedPhaseCount>-1"
                      "</usedPhaseCount><standardError>NaN</standardError></quality>",
                  "<magnitude publicID=\"m\"><mag><value>5</value><uncertainty>-1"
                  "</uncertainty></mag></magnitude>") +
      with_origin("b", kTimeAndPlace + "<depth><value>NaN</value></depth>",
                  "<magnitude publicID=\"m\"><mag><value></value></mag></magnitude>") +
      with_origin("c", kTimeAndPlace + "<depth><value>-200000</value></depth>") +
      with_origin("d", kOrigin,
                  "<magnitude publicID=\"m\"><mag><value>500</value></mag>"
                  "</magnitude>") +
      with_origin(
          "e", kOrigin,
          "<magnitude publicID=\"m\"><mag><value>NaN</value></mag><creationInfo>"
          "<creationTime>yesterday</creationTime></creationInfo></magnitude>"
          "<stationMagnitude publicID=\"s\"><originID>eo</originID><mag><value>"
          "NaN</value></mag></stationMagnitude>") +
      with_origin(
          "f",
          "<time><value>2016-11-13T11:02:56Z</value></time><latitude><value>"
          "-42.7</value></latitude><longitude><value>NaN</value></longitude>")));
  ASSERT_EQ(reading.events.size(), 3U);
  const Origin &origin = reading.events[0].origins[0];
  EXPECT_EQ(origin.depth, 10.0);
  EXPECT_EQ(origin.depth_error, -1.0);
  EXPECT_EQ(origin.gap, -1.0);
  EXPECT_EQ(origin.phases, -1);
  EXPECT_EQ(origin.rms, -1.0);
  EXPECT_EQ(origin.magnitudes.at(0).error, -1.0);
  EXPECT_EQ(reading.events[1].origins[0].depth, -999.0);
  EXPECT_TRUE(reading.events[1].origins[0].magnitudes.empty());
  EXPECT_THAT(reading.refused, ElementsAre(HasSubstr("origin/depth/value is '-200000'"),
                                           HasSubstr("magnitude/mag/value is '500'"),
                                           HasSubstr("has no time, latitude or")));
  for (const char *name :
       {"origin/depth/uncertainty beyond its range",
        "origin/quality/azimuthalGap beyond its range",
        "origin/quality/usedPhaseCount beyond its range",
        "origin/quality/standardError beyond its range",
        "magnitude/mag/uncertainty beyond its range", "a magnitude without a value",
        "creationInfo/creationTime that is not a time"}) {
    EXPECT_TRUE(reading.lacks_place(name)) << name;
  }
}

TEST(QuakemlReader, TurnsAzimuthsAndCountsWhatNoRowHolds) {
  const Reading reading = read_text(quakeml(with_origin(
      "a",
      kOrigin +
          "<originUncertainty><horizontalUncertainty>5000</horizontalUncertainty>"
          "<maxHorizontalUncertainty>6000</maxHorizontalUncertainty>"
          "<azimuthMaxHorizontalUncertainty>-10</azimuthMaxHorizontalUncertainty>"
          "</originUncertainty><arrival><pickID>p</pickID><phase>P</phase><azimuth>-1"
          "</azimuth></arrival>",
      "<pick publicID=\"p\"><time><value>2016-11-13T11:03:06Z</value></time>"
      "<waveformID networkCode=\"NZ\" stationCode=\"KHZ\"/><backazimuth><value>-30"
      "</value></backazimuth><evaluationMode>automatic</evaluationMode></pick>"
      "<focalMechanism publicID=\"f\"><nodalPlanes preferredPlane=\"2\"><nodalPlane1>"
      "<strike><value>226</value></strike></nodalPlane1></nodalPlanes>"
      "</focalMechanism>")));
  ASSERT_EQ(reading.events.size(), 1U);
  const Event &event = reading.events[0];
  EXPECT_EQ(event.picks.at(0).azimuth, 330.0);
  EXPECT_EQ(event.origins[0].associations.at(0).esaz, 359.0);
  EXPECT_EQ(event.origins[0].ellipse_strike, 350.0);
  for (const char *name :
       {"pick/evaluationMode automatic", "focalMechanism/nodalPlanes@preferredPlane",
        "origin/originUncertainty/horizontalUncertainty beside an ellipse"}) {
    EXPECT_TRUE(reading.lacks_place(name)) << name;
  }
}

/* A magnitude of weight 0 was measured and not used. */
TEST(QuakemlReader, TellsWhichStationMagnitudesCount) {
  const auto read = [](const std::string &weight) {
    return read_text(quakeml(with_origin(
        "a", kOrigin,
        "<stationMagnitude publicID=\"s\"><mag><value>5</value></mag><waveformID "
        "networkCode=\"NZ\" stationCode=\"KHZ\"/></stationMagnitude><magnitude "
        "publicID=\"m\"><mag><value>5</value></mag><stationMagnitudeContribution>"
        "<stationMagnitudeID>s</stationMagnitudeID>" +
            weight + "</stationMagnitudeContribution></magnitude>")));
  };
  const auto used = [](const Reading &reading) {
    return reading.events.at(0).origins[0].station_magnitudes.at(0).used;
  };
  const std::string counted = "magnitude/stationMagnitudeContribution/weight";
  for (const char *weight : {"0", "0.00", " 0e0 "}) {
    const Reading reading = read("<weight>" + std::string(weight) + "</weight>");
    EXPECT_EQ(used(reading), 'n') << weight;
    EXPECT_FALSE(reading.lacks_place(counted)) << weight;
  }
  for (const char *weight : {"", "<weight>1.00</weight>"}) {
    EXPECT_EQ(used(read(weight)), '\0') << weight;
    EXPECT_FALSE(read(weight).lacks_place(counted)) << weight;
  }
  EXPECT_EQ(used(read("<weight>0.5</weight>")), '\0');
  EXPECT_TRUE(read("<weight>0.5</weight>").lacks_place(counted));
}

TEST(QuakemlReader, TakesVariantsOfTheRoot) {
  const std::string inner = "<origin publicID=\"o\">" + kOrigin + "</origin></event>";
  const std::string event = "<event publicID=\"e\">" + inner;
  for (const std::string &text :
       {"<eventParameters>" + event + "</eventParameters>",
        "<quakeml xmlns=\"http://quakeml.org/xmlns/quakeml/1.2\"><eventParameters>" +
            event + "</eventParameters></quakeml>",
        /* Parts beside the event, as in the real-time variant. */
        "<q:quakeml xmlns:q=\"http://quakeml.org/xmlns/quakeml-rt/1.2\" xmlns=\""
        "http://quakeml.org/xmlns/bed-rt/1.2\"><eventParameters><event publicID=\"e\">"
        "<originReference>o</originReference></event><origin publicID=\"o\">" +
            kOrigin + "</origin></eventParameters></q:quakeml>"}) {
    const Reading reading = read_text(text);
    ASSERT_EQ(reading.events.size(), 1U) << text << reading.problem;
    EXPECT_EQ(reading.events[0].origins[0].lat, -42.7);
  }
}

TEST(QuakemlReader, TakesTheDialectWithItsUnits) {
  const Reading reading = read_text(
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><seiscomp "
      "xmlns=\"http://s/0.11\" "
      "version=\"0.11\"><EventParameters><pick publicID=\"p\"><time><value>"
      "2016-11-13T11:03:06Z</value></time><waveformID networkCode=\"NZ\" stationCode="
      "\"KHZ\"/></pick><pick publicID=\"other\"><time><value>2016-11-13T11:03:06Z"
      "</value></time></pick><event publicID=\"e\"><preferredOriginID>o"
      "</preferredOriginID><originReference>o</"
      "originReference><description><text>Kr\xe4he"
      "</text><type>earthquake name</type></description></event><origin publicID=\"o\">"
      "<time><value>2016-11-13T11:02:56Z</value></time><latitude><value>1</value>"
      "</latitude><longitude><value>2</value></longitude><depth><value>15.5</value>"
      "</depth><uncertainty><horizontalUncertainty>3.5</horizontalUncertainty>"
      "</uncertainty><arrival><pickID>p</pickID><phase>P</phase><timeUsed>true</"
      "timeUsed>"
      "<weight>0.5</weight></arrival><stationMagnitude publicID=\"s\"><type>MLv</type>"
      "<magnitude><value>4.5</value></magnitude></stationMagnitude><magnitude publicID="
      "\"m\"><magnitude><value>4.25</value></magnitude><type>MLv</type></magnitude>"
      "</origin></EventParameters></seiscomp>");
  ASSERT_EQ(reading.problem, "");
  ASSERT_EQ(reading.events.size(), 1U);
  const Event &event = reading.events[0];
  EXPECT_EQ(event.name, "Kr\xc3\xa4he");
  const Origin &origin = event.origins[0];
  EXPECT_EQ(origin.depth, 15.5);
  EXPECT_EQ(origin.horizontal_error, 3.5);
  EXPECT_EQ(origin.magnitudes.at(0).value, 4.25);
  EXPECT_EQ(origin.station_magnitudes.at(0).value, 4.5);
  EXPECT_EQ(origin.associations.at(0).weight, 0.5);
  EXPECT_EQ(origin.associations[0].time_used, 'd');
  EXPECT_EQ(event.picks.size(), 1U) << "the pick of no origin is not the event's";
  EXPECT_TRUE(reading.lacks_place("a pick that no event refers to"));
}

TEST(QuakemlReader, ReadsUtf16) {
  const std::string text = quakeml(kEvent);
  for (const bool mark : {true, false}) {
    std::string wide = mark ? "\xff\xfe" : "";
    for (const char c : text) wide += {c, '\0'};
    const Reading reading = read_text(wide);
    EXPECT_EQ(reading.problem, "");
    EXPECT_EQ(reading.events.size(), 1U);
  }
}

/* A file that ends early must import nothing, wherever it ends. */
TEST(QuakemlReader, ATruncatedFileIsAFault) {
  const std::string text = quakeml(kEvent + kEvent);
  for (std::size_t size = 300; size < text.size() - 2; size += 97) {
    const Reading reading = read_text(text.substr(0, size));
    ASSERT_THAT(reading.problem, HasSubstr("in.xml:")) << size;
  }
}

struct Hostile {
  std::string name, text, said;
};

TEST(XmlReader, RefusesWhatIsHostile) {
  std::string deep, wide = "<event publicID=\"e\">";
  for (int i = 0; i < 100; i++) deep += "<a>";
  for (int i = 0; i < 60000; i++) wide += "<x/>";
  const std::string big(std::size_t{3} << 20, 'x');
  std::string names;
  for (int i = 0; i < 300000; i++) names += "<n" + std::to_string(i) + "/>";
  const std::string head = "<quakeml><eventParameters>";
  const std::vector<Hostile> cases{
      {"laughs",
       "<!DOCTYPE q [<!ENTITY a \"ha\"><!ENTITY b \"&a;&a;\">]>" + head + "&b;",
       "in.xml:1: a document type declaration"},
      {"outside", "<!DOCTYPE q SYSTEM \"file:///etc/passwd\">" + head,
       "a document type declaration"},
      {"entity", head + "&lots;", "1: an entity that is not declared"},
      {"depth", head + "\n" + deep, "in.xml:2: elements are nested deeper than 64"},
      {"elements", head + wide, "has more than 50000 elements"},
      {"text", head + "<event><comment>" + big, "a text is longer than 1048576 bytes"},
      {"attribute", head + "<event publicID=\"" + big,
       "a tag or a comment is longer than 1048576 bytes"},
      {"names", head + names, "too many names"},
      {"latin bytes in UTF-8",
       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + head + "Kr\xe4he",
       "in.xml:2: this is not well-formed XML, or not in the encoding"},
      {"UTF-16 declared", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + head,
       "not in the encoding that it declares"},
      {"unknown encoding", "<?xml version=\"1.0\" encoding=\"klingon\"?>" + head,
       "the encoding that the text declares is not known"},
      {"prefix", "<q:quakeml>", "unbound prefix"},
      {"tags", head + "</quakeml>", "mismatched tag in the element eventParameters"},
      {"cut", head + "<event>", "the text ends in the element event"},
  };
  for (const Hostile &hostile : cases) {
    EXPECT_THAT(read_text(hostile.text).problem, HasSubstr(hostile.said))
        << hostile.name;
  }
}

TEST(XmlTime, KnowsOffsetsAndRefusesOthers) {
  double utc = 0.0, time = 0.0;
  ASSERT_TRUE(parse_xml_time("2016-11-13T11:00:00Z", utc));
  EXPECT_TRUE(parse_xml_time("2016-11-13T16:30:00+05:30", time));
  EXPECT_EQ(time, utc);
  EXPECT_TRUE(parse_xml_time("2016-11-13T08:00:00.000-03:00", time));
  EXPECT_EQ(time, utc);
  EXPECT_TRUE(parse_xml_time("2016-11-13", time));
  EXPECT_FALSE(parse_xml_time("2016-11-13T25:00:00Z", time));
}

/* A description that an editor has broken over two lines would else refuse the event. */
TEST(OneLine, JoinsWhatIsBrokenOverLines) {
  EXPECT_EQ(one_line("Central\r\n    Italy"), "Central Italy");
  EXPECT_EQ(one_line("a  b \t\x7f c\n"), "a  b c");
  EXPECT_EQ(one_line("\n a"), "a");
}

TEST(LastPart, SaysSomething) {
  EXPECT_EQ(last_part("smi:nc.anss.org/origin/HYP2000_m2g"), "HYP2000_m2g");
  EXPECT_EQ(last_part("smi:ch.ethz.sed/methods/NLL/3"), "NLL/3");
  EXPECT_EQ(last_part("iasp91"), "iasp91");
  EXPECT_EQ(last_part("/1"), "1");
}

}  // namespace
}  // namespace ksutil::exchange
