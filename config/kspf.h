/* kspf: reads, looks up, edits, checks and writes parameter files (class KSPf).
 *
 *   KSPf pf;
 *   double interval = 0.0;
 *   if (pf.readFile("etc/server.pf") == 0 &&
 *       pf.getDouble("monitor.interval", interval, 2.0) >= 0) ...
 *   pf.set("magnitudes[0]", "mww 7.0");
 *   pf.write("etc/server.pf");
 *
 * Lines that no edit has changed are written back byte for byte: comments, blank lines,
 * order and layout.  docs/parameter-files.md describes the form of the files, the paths
 * and the form of constraints.
 *
 * Paths: names of keys joined by dots, items of tables as [n] from 0:
 * "map.lines[2].c".  A name that holds dots, brackets or quotes stands in quotes, with
 * the escapes of the files.  "" is the file as a whole.
 *
 * Ownership: a KSPf is a value.  Copies are cheap: they share their contents until one
 * of them is edited, and never see each other's edits.
 * Threads: one object is for one thread at a time; copies may be used by many threads
 * at once.
 * Errors: -1 with a message in the error register, the object and the arguments
 * unchanged.  Nothing throws. */
#ifndef KSUTIL_CONFIG_KSPF_H
#define KSUTIL_CONFIG_KSPF_H

#include <string>

#include "core/Table.h"
#include "platform/pf/pf.h"
#include "platform/stock/export.h"

/* Bits of the flags of KSPf::merge. */
enum {
  KSPF_APPEND_TABLES = 1,  // items of a later table follow those of the earlier one
  KSPF_KEEP_PRESENT = 2    // takes absent entries only: completes a file with defaults
};

/* A condition on a value.  Members that are not set demand nothing. */
struct KSPf_Constraint {
  std::string name;          // the key; empty for items, words and the file as a whole
  std::string type = "any";  // any, string, integer, real, boolean, time, table, array
  bool required = false;     // its absence is a violation
  bool empty_ok = false;  // an empty text means "no value" and fits every type of text
  std::string min, max;   // of integer, real and time: bounds, both included
  long min_count = -1;    // of a table its items, of an array its keys; negative: none
  long max_count = -1;
  Table<std::string> values;  // of a text: the only ones allowed
  std::string pattern;        // an extended regular expression for the whole text
  Table<KSPf_Constraint>
      words;  // of a string: its words, separated by blanks, in order
  Table<KSPf_Constraint> items;  // of a table: one, for each of its items
  Table<KSPf_Constraint> keys;   // of an array
  Table<KSPf_Constraint>
      others;  // of an array: one, for keys that `keys` does not name;
               // none: they are violations when there are `keys`
};

/* One violation of a constraint. */
struct KSPf_Violation {
  std::string file;  // as it was read, empty for a text
  long line;         // from 1; 0 for a value that an edit has made, and the whole file
  std::string path;
  std::string text;  // "must be an integer, not 'abc'"
};

/* The most violations that a check lists. */
enum { kKSPfMaxViolations = 1000 };

class KSUTIL_API KSPf {
 public:
  KSPf() noexcept = default;  // an empty file
  KSPf(const KSPf &other) noexcept;
  KSPf(KSPf &&other) noexcept;
  KSPf &operator=(KSPf other) noexcept;
  ~KSPf();

  /* --- reading: each replaces the contents; 0 or -1 --- */

  /* The file at a path, or, for a name without a slash, the files of this name in the
   * directories of KSUTIL_PF_PATH, merged in this order without flags (as pfread). */
  int read(const std::string &name);
  /* One file, whatever its name. */
  int readFile(const std::string &path);
  /* A text; `name` stands for it in messages. */
  int readText(const std::string &text, const std::string &name = "");
  /* The entries of an array tree, which stays the caller's. */
  int readPf(Pf *pf);

  /* --- writing --- */

  /* The whole file as it is to be written; 0 or -1. */
  int text(std::string &text) const;

  /* Writes the file: a new file beside it, with the mode and, where allowed, the owner
   * of the one at the path, is flushed to disk and takes its place, so that at any time
   * there is a whole file.  A symbolic link stays one, also when the file that it leads
   * to is not there yet: that file is made.  0; -1 with the old file in place, also
   * when it would be too large to be read again. */
  int write(const std::string &path) const;

  /* A new tree of the value at a path, which the caller frees with pffree; 0, or -1. */
  int getPf(const std::string &path, Pf **pf) const;

  /* --- looking --- */

  /* PFSTRING, PFTBL or PFARR; PFINVALID when there is nothing (no message). */
  int kind(const std::string &path) const;

  /* Items of a table or keys of an array; -1 without a message for anything else. */
  long count(const std::string &path) const;

  /* The keys of an array in the order written.  0, 1 when it is absent (keys cleared),
   * or -1. */
  int getKeys(const std::string &path, Table<std::string> &keys) const;

  /* The file and line in which a value was read (the line of its text or opening
   * brace); line 0 for a value that an edit has made.  0, or -1 when there is no value
   * at the path. */
  int where(const std::string &path, std::string &file, long &line) const;

  /* Typed values.
   *    0  stored
   *    1  absent, or (but for getString) an empty text: `fallback` is stored
   *   -1  a table or array, or a text that is not of the type: nothing is stored
   * getInt reads a decimal integer; getDouble a real, independent of the locale;
   * getBoolean the words of KS_ParseBoolean; getTime epoch seconds from a date text
   * (ksutil::parse_date_text) or a number. */
  int getString(const std::string &path, std::string &value,
                const std::string &fallback = "") const;
  int getInt(const std::string &path, long &value, long fallback = 0) const;
  int getDouble(const std::string &path, double &value, double fallback = 0.0) const;
  int getBoolean(const std::string &path, bool &value, bool fallback = false) const;
  int getTime(const std::string &path, double &value, double fallback = 0.0) const;

  /* The texts of a table.  0; 1 when it is absent (texts cleared); -1 when it is not a
   * table or has a nested item. */
  int getStrings(const std::string &path, Table<std::string> &texts) const;

  /* --- editing: each 0 or -1 --- */

  /* Makes the value at a path a text.  A present value is replaced within its line,
   * which keeps its comment; an absent key is added at the end of its array, arrays
   * missing on the way before it.  An item must be there. */
  int set(const std::string &path, const std::string &text);

  /* The same with a value in the form in which files have it behind a name: a text, or
   * a block "&Tbl{\n...\n}", laid out like its surroundings. */
  int setWritten(const std::string &path, const std::string &written);

  /* Adds a key that must not be there, or an item before the one of that index; the
   * index after the last one appends. */
  int insert(const std::string &path, const std::string &text);
  int insertWritten(const std::string &path, const std::string &written);

  /* Removes a value with all below it, and earlier entries of the same name.  Comments
   * around it stay. */
  int remove(const std::string &path);

  /* Merges another file into this one.  Arrays are merged key by key; a text or a table
   * replaces the value of the same path, in its place; new keys are added at the end of
   * their arrays, with the comments directly above them.  `flags` are KSPF_*; items
   * that KSPF_APPEND_TABLES adds also bring their comments.  Merged values keep the
   * file and line in which they were read. */
  int merge(const KSPf &later, int flags = 0);

  /* Lays the file out anew: two blanks for each level, the values of neighbouring
   * entries in one column, single blank lines, "\n" at line ends.  Values and comments
   * stay. */
  int format();

  /* --- checking --- */

  /* Reads this file as constraints (docs/parameter-files.md); 0, or -1 with a message
   * for each fault, by file and line. */
  int readConstraint(KSPf_Constraint &constraint) const;

  /* Checks the file, as an array, against a constraint.
   *
   * violations   out: the violations in the order of the file, at most kKSPfMaxViolations
   * 0 without violations, 1 with some, -1 when the constraint itself is faulty. */
  int check(const KSPf_Constraint &constraint, Table<KSPf_Violation> &violations) const;

 private:
  struct Contents;
  enum { kInsert = 1, kWritten = 2 };
  explicit KSPf(Contents *contents) noexcept : contents_(contents) {}
  const Contents &contents() const;
  Contents &changeable();
  int setValue(const char *who, const std::string &path, const std::string &value,
               int how);

  Contents *contents_ = nullptr;  // counts its owners; null: empty
};

#endif
