/* kssac changes files that may be the only copy of a recording: what it does not mean to
 * change must stay, also when it fails. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <filesystem>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/formats/sac_bytes.h"
#include "tests/tools/paths.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using sac::test::SacBytes;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kKssac = KSSAC_PROGRAM;

ProgramRun kssac(const std::string &arguments) {
  return run_program(kKssac + " " + arguments);
}

SacBytes station_file(int npts = 4) {
  SacBytes bytes;
  bytes.series(npts)
      .text(sac::test::kKstnm, "ANMO    ")
      .text(sac::test::kKcmpnm, "BHZ     ");
  return bytes;
}

TEST(Kssac, ShowsHeadersAsTextAndJson) {
  const ScratchFolder folder;
  const std::string file = folder.write("a.sac", station_file().str());
  const ProgramRun text = kssac("header " + file);
  EXPECT_EQ(text.code, 0) << text.errors;
  EXPECT_THAT(text.output, HasSubstr(": 4 samples, begins 2009-09-04T01:02:03.004Z"));
  EXPECT_THAT(text.output, HasSubstr("KSTNM      ANMO"));
  EXPECT_THAT(text.output, testing::Not(HasSubstr("STLA")));
  const auto json = nlohmann::json::parse(kssac("header --all --json " + file).output);
  EXPECT_EQ(json[0]["DELTA"], 0.5);
  EXPECT_EQ(json[0]["NPTS"], 4);
  EXPECT_EQ(json[0]["KCMPNM"], "BHZ");
  EXPECT_TRUE(json[0]["STLA"].is_null());
  EXPECT_EQ(json[0].size(), 134U);
  const ProgramRun mixed = kssac("header " + (folder / "none") + " " + file);
  EXPECT_EQ(mixed.code, 1);
  EXPECT_EQ(mixed.output, text.output);
  EXPECT_EQ(kssac("header").code, 2);
}

TEST(Kssac, DumpsSamplesWithTheirTimes) {
  const ScratchFolder folder;
  const std::string file = folder.write("a.sac", station_file(2).str());
  EXPECT_EQ(kssac("dump " + file).output,
            "time value\n2009-09-04T01:02:03.004Z 1\n2009-09-04T01:02:03.504Z 2\n");
  EXPECT_EQ(kssac("dump --epoch --csv " + file).output,
            "time,value\n1252026123.004000,1\n1252026123.504000,2\n");
  EXPECT_EQ(kssac("dump --raw --csv --limit 1 " + file).output,
            "time,value\n1252026123.004000,1\n");
  const auto json =
      nlohmann::json::parse(kssac("dump --relative --json " + file).output);
  EXPECT_EQ(json[1]["time"], 0.5);
  EXPECT_EQ(json[1]["value"], 2);
  /* Two samples, then their times. */
  SacBytes uneven;
  uneven.series(4).integer(sac::test::kNpts, 2).integer(sac::test::kLeven, 0);
  uneven.integer(sac::test::kNzmsec, -12345);  // and no whole reference time
  EXPECT_EQ(kssac("dump " + folder.write("u.sac", uneven.str())).output,
            "time/s value\n3.000000 1\n4.000000 2\n");
}

TEST(Kssac, SetsNothingButWhatIsSaid) {
  const ScratchFolder folder;
  SacBytes bytes = station_file();
  const std::string file = folder.write("a.sac", bytes.str() + "what follows");
  ::chmod(file.c_str(), 0640);
  ASSERT_EQ(kssac("set " + file + " T0=1.5 KT0=S NEVID=7 KSTNM= LCALDA=1").code, 0);
  bytes.real(sac::test::kT0, 1.5F).text(sac::test::kKt0, "S       ");
  bytes.integer(sac::test::kNevid, 7).text(sac::test::kKstnm, "-12345  ");
  bytes.integer(sac::test::kLcalda, 1);
  EXPECT_EQ(read_text(file), bytes.str() + "what follows");
  struct stat status {};
  ::stat(file.c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0640U);

  for (const char *const refused :
       {"T0=1 NOWHERE=2", "KSTNM=ninechars", "T0=late", "NPTS=3000000000", "T0",
        "NVHDR=7", "NPTS=500", "NPTS=3", "NPTS=-5", "DELTA=0", "DELTA=nan", "STLA=95",
        "NZYEAR=99999", "IFTYPE=IDISP", "LEVEN=perhaps", "E=70"}) {
    const ProgramRun run = kssac("set " + file + " KHOLE=01 " + refused);
    EXPECT_EQ(run.code, 1) << refused;
    EXPECT_THAT(run.errors, testing::Not(IsEmpty()));
    EXPECT_EQ(read_text(file), bytes.str() + "what follows") << refused;
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder / ""), {}), 1);
}

TEST(Kssac, SetsByNameAndKeepsTheEndWithTheBeginning) {
  const ScratchFolder folder;
  const std::string file = folder.write("a.sac", station_file(5).str());
  ASSERT_EQ(kssac("set " + file + " B=10 IDEP=IVEL LPSPOL=TRUE LOVROK=false").code, 0);
  const auto header = [&](const std::string &options) {
    return nlohmann::json::parse(kssac("header --json " + options + file).output)[0];
  };
  EXPECT_EQ(header("")["E"], 12.0);
  EXPECT_EQ(header("")["IFTYPE"], "ITIME");
  EXPECT_EQ(header("")["IDEP"], "IVEL");
  EXPECT_EQ(header("")["LPSPOL"], true);
  EXPECT_EQ(header("")["LOVROK"], false);
  EXPECT_EQ(header("--raw ")["IDEP"], 7);
  EXPECT_EQ(header("--raw ")["LPSPOL"], 1);
  const ProgramRun refused = kssac("set " + file + " NPTS=3");
  EXPECT_EQ(refused.errors,
            "kssac: " + file + ": NPTS must be 5, the number of samples in the file\n");
}

TEST(Kssac, SwapsBetweenByteOrders) {
  const ScratchFolder folder;
  constexpr auto kForeign = std::endian::native == std::endian::little
                                ? std::endian::big
                                : std::endian::little;
  SacBytes here, there(kForeign);
  here.series(4).text(sac::test::kKevnm, "sixteen letters!");
  there.series(4).text(sac::test::kKevnm, "sixteen letters!");
  const std::string file = folder.write("there.sac", there.str());
  ASSERT_EQ(kssac("swap " + file + " " + (folder / "here.sac")).code, 0);
  EXPECT_EQ(read_text(folder / "here.sac"), here.str());
  ASSERT_EQ(kssac("swap " + (folder / "here.sac") + " " + (folder / "here.sac")).code,
            0);
  EXPECT_EQ(read_text(folder / "here.sac"), there.str());
  EXPECT_EQ(
      kssac("swap " + folder.write("text", std::string(700, 'x')) + " " + file).code,
      1);
  EXPECT_EQ(read_text(file), there.str());
}

/* Every command takes a file of the other byte order, and leaves it in its order. */
TEST(Kssac, FilesOfTheOtherByteOrderAreLikeOthers) {
  const ScratchFolder folder;
  constexpr auto kForeign = std::endian::native == std::endian::little
                                ? std::endian::big
                                : std::endian::little;
  const auto file_in = [&](std::endian order, const char *name, int npts, int leven) {
    SacBytes bytes(order);
    bytes.series(4).text(sac::test::kKstnm, "ANMO    ");
    bytes.text(sac::test::kKcmpnm, "BHZ     ").integer(sac::test::kNpts, npts);
    return folder.write(name, bytes.integer(sac::test::kLeven, leven).str());
  };
  const std::string here = file_in(std::endian::native, "here.sac", 4, 1),
                    there = file_in(kForeign, "there.sac", 4, 1);
  for (const char *const command : {"dump ", "header --csv "}) {
    std::string output = kssac(command + there).output;
    for (std::size_t at; (at = output.find("there.sac")) != output.npos;) {
      output.replace(at, 9, "here.sac");
    }
    EXPECT_EQ(output, kssac(command + here).output) << command;
  }
  const std::string uneven = file_in(kForeign, "uneven.sac", 2, 0);
  EXPECT_THAT(kssac("dump --relative " + uneven).output, HasSubstr("4.000000 2\n"));
  EXPECT_EQ(kssac("plot -o " + (folder / "a.svg") + " " + there).code, 0);
  ASSERT_EQ(kssac("set " + there + " KSTNM=NEW T0=1.5").code, 0);
  ASSERT_EQ(kssac("set " + here + " KSTNM=NEW T0=1.5").code, 0);
  ASSERT_EQ(kssac("swap " + there + " " + (folder / "turned.sac")).code, 0);
  EXPECT_EQ(read_text(folder / "turned.sac"), read_text(here));
  const std::string database = folder / "db";
  ASSERT_EQ(kssac("to-db --create css3.0 " + there + " " + database).code, 0);
  EXPECT_THAT(
      run_program(kKsdb + " list --fields datatype " + database + " wfdisc").output,
      HasSubstr(kForeign == std::endian::big ? "t4" : "f4"));
  ASSERT_EQ(kssac("from-db --dir " + (folder / "") + " " + database).code, 0);
  EXPECT_EQ(read_text(folder / "NEW.BHZ.2009247.010203.004.sac").substr(632),
            read_text(here).substr(632));
}

TEST(Kssac, SetsNoKindOfDataThatTheFileDoesNotHold) {
  const ScratchFolder folder;
  const std::string file = folder.write("a.sac", station_file().str());
  const std::string before = read_text(file);
  const struct {
    const char *assignment, *message;
  } cases[] = {
      {"LEVEN=FALSE", ": LEVEN must be TRUE: the file has one value for each sample"},
      {"LEVEN=", "'' is not a value for LEVEN"},
      {"DELTA=", "'' is not a value for DELTA"},
      {"E=", "'' is not a value for E"},
      {"IFTYPE=IRLIM", ": IFTYPE is not a spectrum: the file has one value"},
      {"IFTYPE=IXYZ", ": IFTYPE is not a plane: the file lacks NXSIZE or NYSIZE"},
      {"NZJDAY=366", ": NZJDAY must be between 1 and 365 in 2009"},
  };
  for (const auto &c : cases) {
    const ProgramRun run = kssac("set " + file + " " + c.assignment);
    EXPECT_EQ(run.code, 1) << c.assignment;
    EXPECT_THAT(run.errors, HasSubstr(c.message));
    EXPECT_EQ(read_text(file), before);
  }
  EXPECT_EQ(kssac("set " + file + " NZYEAR=2008 NZJDAY=366").code, 0);
  EXPECT_EQ(kssac("set " + file + " IFTYPE=IXY").code, 0);
}

TEST(Kssac, NamesThatDoNotFitAreRefusedBeforeAnythingIsWritten) {
  const ScratchFolder folder;
  const std::string file =
      folder.write("IU.ANMO.00.BHZ.2009247.010203.004.sac",
                   station_file().text(sac::test::kKhole, "00      ").str());
  const ProgramRun run = kssac("to-db --create css3.0 " + file + " " + (folder / "db"));
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("is longer than the 32 characters of dfile"));
  /* Readers take these for no name, or for another one. */
  const std::string blank = folder.write("sp .sac ", station_file().str());
  EXPECT_THAT(kssac("to-db '" + blank + "' " + (folder / "db")).errors,
              HasSubstr("begins or ends with a blank, which dfile does not keep"));
  std::filesystem::create_directory(folder / "-");
  const std::string nameless = folder.write("-/a.sac", station_file().str());
  EXPECT_THAT(kssac("to-db " + nameless + " " + (folder / "db")).errors,
              HasSubstr("a.sac: - is the null of dir"));
  for (const char *const table : {"seedcode", "wfdisc", "sitechan", "lastid"}) {
    EXPECT_THAT(read_text(folder / ("db." + std::string(table))), IsEmpty()) << table;
  }
}

TEST(Kssac, PicksAndOriginsOfHeadersBecomeRows) {
  const ScratchFolder folder;
  const auto file = [&](const char *name, const char *sta, float origin) {
    SacBytes bytes = station_file(50);
    bytes.text(sac::test::kKstnm, sta).real(sac::test::kT0, 3.5F);
    bytes.text(sac::test::kKt0, "Sn      ").real(sac::test::kA, 1.25F);
    bytes.real(sac::test::kO, origin).real(sac::test::kEvla, 10.5F);
    bytes.real(sac::test::kEvlo, 20.25F).real(sac::test::kEvdp, 5000.0F);
    return folder.write(name, bytes.str());
  };
  /* Both stations mean one origin, whose time they round differently. */
  const std::string files = file("a.sac", "ANMO    ", -30.0F) + " " +
                            file("b.sac", "BNMO    ", -30.01F) + " ";
  const std::string database = folder / "db";
  const auto rows = [&](const std::string &table, const std::string &fields) {
    return run_program(kKsdb + " list --csv --fields " + fields + " " + database + " " +
                       table)
        .output;
  };
  for (const char *const again : {"--create css3.0 ", ""}) {
    const ProgramRun run =
        kssac(std::string("to-db --picks --origin ") + again + files + database);
    ASSERT_EQ(run.code, 0) << run.errors;
    EXPECT_EQ(rows("arrival", "sta,chan,iphase,arid,chanid"),
              "sta,chan,iphase,arid,chanid\nANMO,BHZ,P,1,1\nANMO,BHZ,Sn,2,1\n"
              "BNMO,BHZ,P,3,2\nBNMO,BHZ,Sn,4,2\n");
    EXPECT_EQ(rows("origin", "orid,evid,lat,lon,depth,nass"),
              "orid,evid,lat,lon,depth,nass\n1,1,10.5000,20.2500,5.0000,4\n");
    EXPECT_EQ(rows("event", "evid,prefor"), "evid,prefor\n1,1\n");
    EXPECT_EQ(
        rows("assoc", "arid,orid,sta,phase"),
        "arid,orid,sta,phase\n1,1,ANMO,P\n2,1,ANMO,Sn\n3,1,BNMO,P\n4,1,BNMO,Sn\n");
  }
  EXPECT_THAT(read_text(database + ".arrival"), HasSubstr("1252026124.25400"));
  EXPECT_THAT(read_text(database + ".origin"), HasSubstr("1252026093.00400"));
  EXPECT_EQ(run_program(kKsdb + " verify " + database).code, 0);
  const std::string half =
      folder.write("c.sac", station_file().real(sac::test::kEvla, 10.0F).str());
  const ProgramRun run = kssac("to-db --origin " + half + " " + database);
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("c.sac has a part of O, EVLA and EVLO only"));
}

TEST(Kssac, FilesGoThroughADatabaseAndBack) {
  const ScratchFolder folder;
  SacBytes bytes = station_file(100);
  bytes.real(sac::test::kStla, 34.5F).real(sac::test::kStlo, -106.25F);
  bytes.real(sac::test::kStel, 1850.0F).real(sac::test::kCmpinc, 90.0F);
  bytes.text(sac::test::kKnetwk, "IU      ");
  const std::string file = folder.write("a.sac", bytes.str());
  const std::string database = folder / "db";
  const ProgramRun entered =
      kssac("to-db " + file + " " + database + " --create css3.0");
  ASSERT_EQ(entered.code, 0) << entered.errors;
  EXPECT_EQ(kssac("to-db " + file + " " + database).code, 0);  // left out
  EXPECT_EQ(
      run_program(kKsdb + " list " + database +
                  " wfdisc --csv --fields "
                  "sta,chan,jdate,wfid,chanid,nsamp,samprate,dir,dfile,foff,datatype")
          .output,
      "sta,chan,jdate,wfid,chanid,nsamp,samprate,dir,dfile,foff,datatype\n"
      "ANMO,BHZ,2009247,1,1,100,2.0000000,.,a.sac,632,f4\n");
  EXPECT_EQ(
      run_program(kKsdb + " list " + database + " site --csv --fields lat,lon,elev")
          .output,
      "lat,lon,elev\n34.5000,-106.2500,1.8500\n");
  EXPECT_EQ(run_program(kKsdb + " verify " + database).code, 0);

  std::filesystem::create_directory(folder / "out");
  const std::string back = "from-db " + database + " --dir " + (folder / "out");
  const ProgramRun written = kssac(back);
  ASSERT_EQ(written.code, 0) << written.errors;
  const std::string copy = written.output.substr(0, written.output.size() - 1);
  const auto header = nlohmann::json::parse(kssac("header --json " + copy).output)[0];
  EXPECT_EQ(header["KNETWK"], "IU");
  EXPECT_EQ(header["STLA"], 34.5);
  EXPECT_EQ(header["STEL"], 1850);
  EXPECT_EQ(header["CMPINC"], 90);
  EXPECT_EQ(header["NWFID"], 1);
  EXPECT_EQ(read_text(copy).substr(632), bytes.str().substr(632));

  EXPECT_EQ(kssac(back).code, 1);  // is there already
  const ProgramRun cut =
      kssac(back + " --start 2009-09-04T01:02:10 --end 1252026135.1 -q --force");
  ASSERT_EQ(cut.code, 0) << cut.errors;
  const std::string name = "/out/IU.ANMO.BHZ.2009247010210004.sac";
  EXPECT_EQ(read_text(folder / name).substr(632),
            bytes.str().substr(632 + 4 * 14, 4 * 11));
  EXPECT_EQ(kssac(back + " --where \"sta == 'NONE'\"").code, 1);
}

/* Two sensors in one vault differ only in their location codes. */
TEST(Kssac, KeepsSensorsOfAStationApart) {
  const ScratchFolder folder;
  const auto file = [&](const char *name, const char *location) {
    return folder.write(name, station_file(4)
                                  .text(sac::test::kKnetwk, "IU      ")
                                  .text(sac::test::kKhole, location)
                                  .str());
  };
  const std::string first = file("a.sac", "00      "),
                    second = file("b.sac", "10      ");
  const std::string none = file("c.sac", "-12345  ");
  const std::string database = folder / "db";
  const std::string enter =
      "to-db " + first + " " + second + " " + none + " " + database;
  for (const char *const again : {" --create css3.0", ""}) {
    const ProgramRun entered = kssac(enter + again);
    ASSERT_EQ(entered.code, 0) << entered.errors;
    EXPECT_EQ(run_program(kKsdb + " list " + database +
                          " seedcode --csv --fields sta,chan,net,seedsta,seedchan,loc")
                  .output,
              "sta,chan,net,seedsta,seedchan,loc\n"
              "ANMO,BHZ00,IU,ANMO,BHZ,00\nANMO,BHZ10,IU,ANMO,BHZ,10\n");
    for (const char *const table : {"wfdisc", "sitechan"}) {
      EXPECT_EQ(run_program(kKsdb + " list " + database + " " + table +
                            " --csv --fields chan")
                    .output,
                "chan\nBHZ00\nBHZ10\nBHZ\n")
          << table;
    }
  }
  std::filesystem::create_directory(folder / "out");
  const ProgramRun written =
      kssac("from-db " + database + " --dir " + (folder / "out"));
  ASSERT_EQ(written.code, 0) << written.errors;
  const std::string start = folder / "out/IU.ANMO.";
  EXPECT_EQ(written.output, start + "00.BHZ.09247027sos.sac\n" + start +
                                "10.BHZ.09247027sos.sac\n" + start +
                                "BHZ.2009247010203004.sac\n");
  /* The names fit dfile. */
  const ProgramRun entered = kssac("to-db --create css3.0 " + (folder / "out/*.sac") +
                                   " " + (folder / "again"));
  EXPECT_EQ(entered.code, 0) << entered.errors;
  const auto header = nlohmann::json::parse(
      kssac("header --json " + (folder / "out/IU.ANMO.10.BHZ.09247027sos.sac")).output);
  EXPECT_EQ(header[0]["KHOLE"], "10");
  /* A channel that is called as another with its location code: one name, two rows. */
  std::filesystem::create_directory(folder / "more");
  const std::string like =
      folder.write("more/d.sac", station_file(4)
                                     .text(sac::test::kKcmpnm, "BHZ00   ")
                                     .text(sac::test::kKnetwk, "IU      ")
                                     .str());
  ASSERT_EQ(kssac("to-db " + like + " " + database).code, 0);
  const ProgramRun forced =
      kssac("from-db --force --dir " + (folder / "out") + " " + database);
  EXPECT_EQ(forced.code, 1);
  EXPECT_THAT(forced.errors, HasSubstr("is the file of another waveform too"));
  EXPECT_EQ(header[0]["KCMPNM"], "BHZ");
}

TEST(Kssac, FillsInAnOrigin) {
  const ScratchFolder folder;
  const std::string database = folder / "db";
  SacBytes bytes = station_file(100);
  bytes.real(sac::test::kStla, 0.0F).real(sac::test::kStlo, 10.0F);
  ASSERT_EQ(kssac("to-db " + folder.write("a.sac", bytes.str()) + " " + database +
                  " --create css3.0")
                .code,
            0);
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(database.c_str(), "r+", &db), 0);
  dbaddv(dblookup(db, "", "origin", "", ""), "lat", 0.0, "lon", 40.0, "depth", 5.0,
         "time", 1252026100.0, "orid", 9L, "evid", 8L, (char *)nullptr);
  dbclose(db);
  /* Cut, so that the reference time is not the row's. */
  const ProgramRun run = kssac("from-db " + database + " --orid 9 --dir " +
                               (folder / "") + " --start 1252026130.004");
  ASSERT_EQ(run.code, 0) << run.errors;
  const auto header =
      nlohmann::json::parse(kssac("header --json " + run.output).output)[0];
  EXPECT_EQ(header["NORID"], 9);
  EXPECT_EQ(header["NEVID"], 8);
  EXPECT_EQ(header["EVDP"], 5000);
  EXPECT_NEAR(header["O"].get<double>(), -30.004, 0.0011);
  EXPECT_NEAR(header["GCARC"].get<double>(), 30.0, 1e-5);
  EXPECT_NEAR(header["AZ"].get<double>(), 270.0, 1e-4);
  EXPECT_NEAR(header["BAZ"].get<double>(), 90.0, 1e-4);
  EXPECT_EQ(kssac("from-db " + database + " --orid 7 --dir " + (folder / "")).code, 1);
}

TEST(Kssac, WaveformsOfUnknownStationsAreWrittenToo) {
  const ScratchFolder folder;
  folder.write("b.sac", station_file(4).text(sac::test::kKcmpnm, "BHN     ").str());
  folder.write("a.sac", station_file(4).str());
  const std::string database = folder / "db";
  ASSERT_EQ(kssac("to-db " + (folder / "a.sac") + " " + (folder / "b.sac") + " " +
                  database + " --create kbcore")
                .code,
            0);
  /* The second waveform's file is cut short: the first must come nevertheless. */
  std::filesystem::resize_file(folder / "b.sac", 640);
  const ProgramRun run = kssac("from-db " + database + " --dir " + (folder / ""));
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("b.sac has 640 bytes"));
  EXPECT_THAT(run.output, HasSubstr("ANMO.BHZ.2009247.010203.004.sac"));
}

/* A channel whose station has no row of site would refer to nothing. */
TEST(Kssac, StationsWithoutCoordinatesAreCompletedByALaterFile) {
  const ScratchFolder folder;
  const std::string bare = folder.write("a.sac", station_file().str());
  const std::string placed =
      folder.write("b.sac", station_file()
                                .text(sac::test::kKcmpnm, "BHN     ")
                                .real(sac::test::kStla, 34.5F)
                                .real(sac::test::kStlo, -106.5F)
                                .str());
  const std::string database = folder / "db";
  const auto sites = [&] {
    return run_program(kKsdb + " list " + database + " site --csv --fields sta,lat,lon")
        .output;
  };
  ASSERT_EQ(kssac("to-db --create css3.0 " + bare + " " + database).code, 0);
  EXPECT_EQ(sites(), "sta,lat,lon\nANMO,,\n");
  EXPECT_EQ(run_program(kKsdb + " verify " + database).code, 0);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(kssac("to-db " + placed + " " + bare + " " + database).code, 0);
    EXPECT_EQ(sites(), "sta,lat,lon\nANMO,34.5000,-106.5000\n");
  }
}

TEST(Kssac, DrawsSeismogramsWithPicks) {
  const ScratchFolder folder;
  const std::string file = folder.write("a.sac", station_file(50)
                                                     .real(sac::test::kT0, 3.5F)
                                                     .text(sac::test::kKt0, "Sn      ")
                                                     .str());
  ASSERT_EQ(kssac("plot " + file + " " + file + " -o " + (folder / "a.svg")).code, 0);
  const std::string picture = read_text(folder / "a.svg");
  EXPECT_THAT(picture, HasSubstr("ANMO.BHZ"));
  EXPECT_THAT(picture, HasSubstr("Sn"));
  EXPECT_EQ(kssac("plot " + file).code, 2);
  const std::string spectrum =
      folder.write("s.sac", SacBytes().series(4).integer(sac::test::kIftype, 3).str());
  EXPECT_EQ(kssac("plot " + spectrum + " -o " + (folder / "s.svg")).code, 1);
}

}  // namespace
}  // namespace ksutil::tools
