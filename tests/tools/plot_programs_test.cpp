/* Pictures of databases and curves as users ask for them. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "platform/db/db.h"
#include "platform/stock/bytes.h"
#include "platform/trace/trace.h"
#include "tests/tools/scratch.h"
#include "tools/plot/symbol_cycle.h"

namespace ksutil::tools {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

std::size_t occurrences(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++)
    count++;
  return count;
}

/* Runs `program ... -o picture` and gives the SVG. */
std::string picture(const ScratchFolder &folder, const std::string &command) {
  const std::string path = folder / "picture.svg";
  const ProgramRun run = run_program(command + " -o " + path);
  EXPECT_EQ(run.code, 0) << run.errors;
  return read_text(path);
}

const std::string kPlot = std::string(KSDB_PROGRAM) + " plot ";

std::string small_database(const ScratchFolder &folder) {
  folder.write("c.csv",
               "time,latitude,longitude,depth,id,mag,magType\n"
               "2015-08-01T00:00:00Z,1,179,10,a,4.5,mb\n"
               "2015-08-01T01:00:00Z,3,-179,300,b,3.0,ml\n"
               "2015-08-02T02:00:00Z,5,178,600,c,4.0,mb\n");
  const ProgramRun run =
      run_program(std::string(KSDB_PROGRAM) + " import --create css3.0 " +
                  (folder / "c.csv") + " " + (folder / "db"));
  EXPECT_EQ(run.code, 0) << run.errors;
  return folder / "db";
}

TEST(KsdbPlot, DrawsRowsWithKeys) {
  const ScratchFolder folder;
  const std::string database = small_database(folder);
  const std::string svg = picture(
      folder, kPlot + database +
                  " origin+netmag --x time --y depth --hue depth --size magnitude "
                  "--colours hue");
  EXPECT_THAT(svg, HasSubstr(">time (UTC)</text>"));
  EXPECT_THAT(svg, HasSubstr(">2015-08-01</text>"));
  EXPECT_EQ(occurrences(svg, ">depth (km)</text>"), 2U);  // axis and key
  EXPECT_THAT(svg, HasSubstr(">magnitude</text>"));
  /* Three points, and 3.0, 3.5, 4.0 and 4.5 in the key. */
  EXPECT_EQ(occurrences(svg, "<circle"), 7U);
  /* Amber for the smallest, at 50 degrees, to blue for the largest, at -140. */
  EXPECT_THAT(svg, HasSubstr("#f5d63d"));
  EXPECT_THAT(svg, HasSubstr("#3d7af5"));
}

/* Depths are dark where they are large; a hue of the user's own wins. */
TEST(KsdbPlot, ColoursGrowEvenlyLighterUnlessHuesAreAsked) {
  const ScratchFolder folder;
  const std::string command =
      kPlot + small_database(folder) + " origin --x time --y lat --hue ";
  const std::string lat = picture(folder, command + "lat");
  const std::string depth = picture(folder, command + "depth");
  const auto first = [](const std::string &svg, const char *colour) {
    return svg.find(std::string("fill=\"") + colour);
  };
  for (const std::string &svg : {lat, depth}) {
    EXPECT_THAT(svg, HasSubstr("#440154"));
    EXPECT_THAT(svg, HasSubstr("#fde725"));
  }
  EXPECT_LT(first(lat, "#440154"), first(lat, "#fde725"));  // in the order of the rows
  EXPECT_GT(first(depth, "#440154"), first(depth, "#fde725"));
  for (const char *hues : {"--colours hue", "--hue-range -180", "--saturation depth"}) {
    EXPECT_THAT(picture(folder, command + "lat " + hues), Not(HasSubstr("#440154")));
  }
}

TEST(KsdbPlot, DrawsMechanismsInPlaceOfPoints) {
  const ScratchFolder folder;
  const std::string name = small_database(folder);
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(name.c_str(), "r+", &db), 0);
  const Dbptr mt = dblookup(db, nullptr, "mt", nullptr, nullptr);
  char *const end = nullptr;
  dbaddv(mt, "mtid", 1L, "orid", 1L, "strike1", 0.0, "dip1", 90.0, "rake1", 0.0, end);
  dbaddv(mt, "mtid", 2L, "orid", 2L, "strike1", 30.0, "dip1", 45.0, "rake1", 90.0, end);
  dbaddv(mt, "mtid", 3L, "orid", 3L, end);
  dbclose(db);
  const std::string command =
      kPlot + name + " mt+origin --symbol beachball --opacity 0.5";
  const std::string map =
      picture(folder, command + " --map --hue depth --size 'depth < 100 ? 1 : 2'");
  EXPECT_EQ(occurrences(map, "fill-rule=\"evenodd\""), 2U);
  EXPECT_THAT(map, HasSubstr("2 lower focal hemispheres, 1 rows without a mechanism"));
  EXPECT_THAT(map, HasSubstr("fill-opacity=\"0.5\""));
  /* The large one, with its nodal lines, lies under the small one, which has none. */
  const std::size_t large = map.find("r=\"16\""), small = map.find("r=\"3.85\"");
  EXPECT_LT(large, small);
  EXPECT_NE(small, std::string::npos);
  EXPECT_EQ(occurrences(picture(folder, command + " --x lon --y depth"),
                        "fill-rule=\"evenodd\""),
            2U);
  const ProgramRun none = run_program(
      kPlot + name + " origin --map --symbol beachball -o " + (folder / "a.svg"));
  EXPECT_EQ(none.code, 1);
  EXPECT_THAT(none.errors, HasSubstr("no row has a mechanism"));
}

TEST(KsdbPlot, ShowsTheStationsOfToday) {
  const ScratchFolder folder;
  const std::string name = small_database(folder);
  const std::string command = kPlot + name + " origin --stations --map";
  const ProgramRun none = run_program(command + " -o " + (folder / "a.svg"));
  EXPECT_EQ(none.code, 1);
  EXPECT_THAT(none.errors, HasSubstr("no station that is valid now"));
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(name.c_str(), "r+", &db), 0);
  const Dbptr site = dblookup(db, nullptr, "site", nullptr, nullptr);
  char *const end = nullptr;
  const auto add = [&](const char *sta, long ondate, long offdate, double lon) {
    dbaddv(site, "sta", sta, "ondate", ondate, "offdate", offdate, "lat", 2.0, "lon",
           lon, end);
  };
  add("OPEN", 1990001, -1, 178.0);
  add("OPEN", 1990001, 2500001, 179.0);
  add("SHUT", 1990001, 2010001, 177.0);
  add("SOON", 2500001, -1, 176.0);
  dbclose(db);
  const std::string svg = picture(folder, command);
  EXPECT_THAT(svg, HasSubstr(">stations</text>"));
  EXPECT_EQ(occurrences(svg, "fill=\"#ccccd4\""), 2U);  // one group, and the legend
  EXPECT_EQ(occurrences(picture(folder, std::string(KSEVENTS_PROGRAM) +
                                            " plot --stations " + name),
                        ">stations</text>"),
            1U);
  EXPECT_EQ(run_program(kPlot + name + " origin --stations --x lon --y lat -o " +
                        (folder / "a.svg"))
                .code,
            2);
}

TEST(KsdbPlot, LeavesOutNullsAndSaysSo) {
  const ScratchFolder folder;
  const std::string svg = picture(
      folder, kPlot + small_database(folder) + " origin --x mb --y 'depth / 2'");
  EXPECT_EQ(occurrences(svg, "<circle"), 2U);
  EXPECT_THAT(svg, HasSubstr("1 of 3 rows lack a value"));
  EXPECT_THAT(svg, HasSubstr(">depth / 2</text>"));
}

TEST(KsdbPlot, GivesEachNameOneSymbolAndMapsTheirDegrees) {
  const ScratchFolder folder;
  const std::string svg = picture(
      folder, kPlot + small_database(folder) +
                  " origin --map --hollow --symbol \"isnull(mb) ? 'none' : 'some'\"");
  EXPECT_THAT(svg, HasSubstr(">180.0°</text>"));
  EXPECT_THAT(svg, HasSubstr(">none</text>"));
  EXPECT_THAT(svg, HasSubstr(">some</text>"));
  EXPECT_EQ(occurrences(svg, "<circle"), 0U);
}

/* Eight symbols of one colour would show twelve phases as eight. */
TEST(KsdbPlot, GivesManyNamesLooksOfTheirOwn) {
  std::set<std::string> names{"P", "S"};
  for (int i = 0; i < 54; ++i) names.insert("x" + std::to_string(i));
  std::set<std::pair<plot::Symbol, std::string>> seen;
  for (const auto &[name, look] : plot::looks_of(names)) {
    seen.emplace(look.symbol, plot::hex_text(look.colour));
  }
  EXPECT_EQ(seen.size(), names.size());
  const auto alone = plot::looks_of({"S"}).at("S"),
             among = plot::looks_of(names).at("S");
  EXPECT_EQ(alone.symbol, among.symbol);
  EXPECT_EQ(alone.colour, among.colour);
}

TEST(KsdbPlot, RefusesWhatItCannotDraw) {
  const ScratchFolder folder;
  const std::string database =
      small_database(folder) + " origin -o " + (folder / "a.svg");
  EXPECT_EQ(run_program(kPlot + database + " --x lat").code, 2);
  EXPECT_EQ(run_program(kPlot + database + " --map --hue-centre 350").code, 2);
  const ProgramRun wrong = run_program(kPlot + database + " --map --hue nosuch");
  EXPECT_EQ(wrong.code, 1);
  EXPECT_THAT(wrong.errors, HasSubstr("--hue: Can't compile 'nosuch'"));
  EXPECT_EQ(run_program(kPlot + database + " --map --where 'lat > 80'").code, 1);
}

const std::string kCurves = std::string(KSVECTOR_PROGRAM) + " plot ";

TEST(KsvectorPlot, ShowsAmplitudeAndPhaseOfResponses) {
  const ScratchFolder folder;
  const std::string rows = "0.01 1e60 90 0 0\n0.1 1e62 45 0 0\n1 1e63 0 0 0\n";
  const std::string one =
      folder.write("one.fap", "theoretical 1 instrument fap x\n3\n" + rows);
  const std::string two =
      folder.write("two.fap", "theoretical 1 instrument fap x\n3\n" + rows);
  const std::string svg = picture(folder, kCurves + one + " " + two);
  for (const char *text :
       {"one.fap", "two.fap", "frequency (Hz)", "amplitude", "phase (degrees)"}) {
    EXPECT_EQ(occurrences(svg, ">" + std::string(text) + "</text>"), 1U) << text;
  }
  EXPECT_THAT(svg, HasSubstr(">10⁶²</text>"));
}

/* Files with radians where the format says degrees would otherwise look flat. */
TEST(KsvectorPlot, DrawsAllPhasesInDegreesAndNamesTheUnitOfAmplitudes) {
  const ScratchFolder folder;
  const std::string file = folder.write("r.fap",
                                        "# Freq(Hz) Amp(count/nm) Phase(deg)\nt 1 i "
                                        "fap x\n3\n0.1 1 3.1\n1 2 0\n10 3 -3.1\n");
  const std::string radians = picture(folder, kCurves + file);
  EXPECT_THAT(radians, HasSubstr(">amplitude (count/nm)</text>"));
  for (const char *tick : {">−180</text>", ">−90</text>", ">0</text>", ">180</text>"}) {
    EXPECT_THAT(radians, HasSubstr(tick));
  }
  EXPECT_EQ(radians, picture(folder, kCurves + file + " --phase radians"));
  EXPECT_NE(radians, picture(folder, kCurves + file + " --phase degrees"));
}

TEST(Pictures, ComeAsPdfInTheSizeThatIsAsked) {
  const ScratchFolder folder;
  const std::string table = folder.write("t.txt", "0 1\n1 2\n");
  const std::string pdf = folder / "p.pdf", png = folder / "p.png";
  ASSERT_EQ(run_program(kCurves + table + " --width 18cm -o " + pdf).code, 0);
  EXPECT_TRUE(read_text(pdf).starts_with("%PDF-"));
  ASSERT_EQ(run_program(kCurves + table + " --width 4in --dpi 300 -o " + png).code, 0);
  const std::string bytes = read_text(png);
  ASSERT_GT(bytes.size(), 24U);
  int columns = 0;  // the header of a PNG has its width here
  mi2hi(bytes.data() + 16, &columns, 1);
  EXPECT_EQ(columns, 1200);
  for (const char *const refused : {"18mm", "-3cm", "0", "1e9"}) {
    EXPECT_EQ(run_program(kCurves + table + " -o " + pdf + " --width " + refused).code,
              2)
        << refused;
  }
}

TEST(KsvectorPlot, FollowsTheLabelsAndGapsOfTables) {
  const ScratchFolder folder;
  const std::string plain = folder.write("t.txt", "0 1\n1 2\n2 nan\n3 4\n4 5\n");
  const std::string lines = picture(folder, kCurves + plain);
  EXPECT_EQ(occurrences(lines, "stroke=\"#0072b2\""), 1U);
  EXPECT_THAT(lines, ContainsRegex("#0072b2[^g]*<path [^\n]*\n<path [^\n]*\n</g>"));
  const std::string svg = picture(folder, kCurves + plain + " --style points");
  EXPECT_EQ(occurrences(svg, "<circle"), 4U);
}

/* A blob of one trace: five samples with a gap in the third place. */
std::string write_blob(const ScratchFolder &folder) {
  Dbptr trace = trnew();
  Dbptr row = dblookup(trace, nullptr, "trace", nullptr, nullptr);
  row.record = dbaddv(row, "sta", "ANMO", "chan", "BHZ", "time", 1439366400.0,
                      "samprate", 1.0, "nsamp", 5L, static_cast<char *>(nullptr));
  long size = 0;
  dbquery(row, dbq_record_size, &size);
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  dbget(row, text.data());
  text.pop_back();
  trdestroy(&trace);
  float samples[] = {1, 2, 0, 3, 4};
  trfill_gap(samples + 2, 1);
  std::string blob;
  const auto append = [&blob](std::uint32_t number) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      blob += static_cast<char>(number >> shift & 255U);
    }
  };
  append(static_cast<std::uint32_t>(text.size()));
  append(5);
  blob += text;
  for (const float sample : samples) append(std::bit_cast<std::uint32_t>(sample));
  return folder.write("traces.blob", blob);
}

TEST(KsvectorPlot, ShowsTracesOverTime) {
  const ScratchFolder folder;
  const std::string blob = write_blob(folder);
  const std::string svg = picture(folder, kCurves + blob);
  EXPECT_THAT(svg, HasSubstr(">ANMO BHZ</text>"));
  EXPECT_THAT(svg, HasSubstr(">UTC</text>"));
  EXPECT_THAT(svg, ContainsRegex("#0072b2[^g]*<path [^\n]*\n<path [^\n]*\n</g>"));
  EXPECT_THAT(svg, Not(HasSubstr("×10³⁰")));
  const std::string table = folder.write("t.txt", "0 1\n1 2\n");
  EXPECT_EQ(
      run_program(kCurves + blob + " " + table + " -o " + (folder / "a.svg")).code, 2);
}

}  // namespace
}  // namespace ksutil::tools
