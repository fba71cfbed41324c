/* ksconfigure: fills the members of a plain record from texts.  A table gives the name,
 * the type, the default and the offset of each member.
 *
 *   struct Settings { int verbose; double interval; char *author; };
 *   static KS_ConfigureSpec specs[] = {
 *     {"boolean", "verbose", "no", offsetof(Settings, verbose), 0, nullptr},
 *     {"double", "interval", "2.0", offsetof(Settings, interval), 0, nullptr},
 *     {"string", "author", nullptr, offsetof(Settings, author), KS_CONFIGURE_NULL_OK,
 *      nullptr},
 *     {"end", nullptr, nullptr, 0, 0, nullptr}};
 *   Settings settings = {};
 *   configure.setConfigureSpecs(specs, (char *)&settings, "monitor", nullptr, 1);
 *   configure.configure("interval", "5", "author", "me", (char *)nullptr);
 *
 * Ownership: the tables and the records belong to the caller and outlive the object;
 * the tables must be writable, because the object sets their flags.  A record is zeroed
 * before it is first configured: each call compares with the old members and frees old
 * strings.  "string" and "uid" members are heap copies that the record's owner frees at
 * the end.
 * Threads: one thread at a time for an object and the records registered with it.
 * Errors: -1 with messages in the error register; members set before the failing one
 * keep their new values.  Apart from the constructor nothing throws. */
#ifndef KSUTIL_CONFIG_KSCONFIGURE_H
#define KSUTIL_CONFIG_KSCONFIGURE_H

#include <cstdarg>
#include <string>

#include "core/Array.h"
#include "core/Table.h"
#include "platform/pf/pf.h"
#include "platform/stock/export.h"

/* Bits of KS_ConfigureSpec::flags. */
enum {
  KS_CONFIGURE_NULL_OK = 1,    // null is a value; for "string", "uid" and "ptr" only
  KS_CONFIGURE_NODEFAULT = 8,  // left alone when defaults are applied
  KS_CONFIGURE_CHANGED = 16    // out: the last configuration call changed the member
};

/* Bits of the flags of KSConfigure::configurePf. */
enum {
  KS_CONFIGURE_PF_DEFAULTS = 1,  // apply the defaults before the tree
  KS_CONFIGURE_PF_NESTED = 2,  // tables and arrays are values (registered tables only)
  KS_CONFIGURE_PF_UNKNOWN = 32,  // report keys that no entry has
  KS_CONFIGURE_PF_MISSING = 64  // report entries without a key (registered tables only)
};

struct KS_ConfigureSpec;

/* How an entry of type "custom" is read and written. */
struct KS_ConfigureCustom {
  /* Stores `value` (null when a default is null) at record + offset; negative: failed.
   * It sets KS_CONFIGURE_CHANGED in the entry itself if it wants that.  custom_data is
   * the member clientData below, client_data that of setConfigureSpecs. */
  int (*parseProc)(KS_ConfigureSpec *spec, void *custom_data, char *value, char *record,
                   int offset, void *client_data);
  /* A new text of the member, for owners that print their settings; may be null. */
  char *(*printProc)(KS_ConfigureSpec *spec, void *custom_data, char *record,
                     int offset, void *client_data);
  void *clientData;
};

/* One entry of a table, which ends with an entry of type "end".
 *
 * type      and the member it sets:
 *           "boolean"        int: 1, 0, or -1 for an empty text or none (KS_ParseBoolean)
 *           "int"            int: strtol with base 0; a text without a number gives 0
 *           "double"         double: the number that the text begins with
 *           "string", "uid"  char *: a heap copy
 *           "ptr"            char *: the pointer as given, neither copied nor freed
 *           "custom"         what custom->parseProc writes
 *           or a name given to addTypeParser
 * default_value  may be null, which reaches the parser as a null value: a "double" without
 *           default therefore needs KS_CONFIGURE_NODEFAULT
 * offset    of the member in the record, bytes
 * flags     KS_CONFIGURE_* */
struct KS_ConfigureSpec {
  const char *type;
  const char *name;
  const char *default_value;
  int offset;
  int flags;
  KS_ConfigureCustom *custom;
};

/* Stores a value (may be null) into a record; negative on failure. */
typedef int (*KS_ConfigureParser)(KS_ConfigureSpec *spec, char *value, char *record,
                                  void *client_data);

/* The parser of the built-in types.
 *
 * 0 with the member stored, and KS_CONFIGURE_CHANGED set in the entry when it differs
 * from before; 3 with nothing done for any other type name; -1 with a message, the
 * member untouched:
 *   "boolean"  a word that KS_ParseBoolean does not know
 *   "int"      text after the number ("12abc", "12 ", "0x"), or a number outside int
 *   "double"   no number at the start; text after it is accepted
 *   "string", "uid", "ptr"  null without KS_CONFIGURE_NULL_OK
 *   "custom"   a negative result of parseProc
 *   all but "custom"  a null record
 * Two faults of a program end it through ks_die: KS_CONFIGURE_NULL_OK on a "boolean",
 * "int" or "double" that is given a null or empty value, and "custom" without
 * parseProc. */
extern "C" KSUTIL_API int KS_ParseConfigValue(KS_ConfigureSpec *spec, char *value,
                                              char *record, void *client_data);

struct KSConfigureSpecs;

class KSUTIL_API KSConfigure {
 public:
  KSConfigure();
  virtual ~KSConfigure();
  KSConfigure(const KSConfigure &) = delete;
  KSConfigure &operator=(const KSConfigure &) = delete;

  /* Registers or replaces the parser of a type name, for tables registered from now on
   * and for configurePf with a table; 0. */
  int addTypeParser(std::string type, KS_ConfigureParser parser);

  /* Registers a table for a record.  An entry whose name is registered already replaces
   * the earlier entry, and stands last in the order of registration.  An entry of a
   * type without parser is skipped with a complaint.
   *
   * record        may be null for a table of "custom" entries that need none
   * label         a name for the table in lists of settings; copied, may be null
   * client_data   handed to the parsers
   * set_defaults  non-zero: also applies the table's defaults
   * 0, or -1: the defaults failed, or memory is short. */
  int setConfigureSpecs(KS_ConfigureSpec *specs, char *record, const char *label,
                        void *client_data, int set_defaults);

  /* Applies defaults and a tree (may be null) to one table, registered or not.  Keys
   * are taken in sorted order; a table or an array under one of them is an error.
   *
   * flags   KS_CONFIGURE_PF_DEFAULTS and KS_CONFIGURE_PF_UNKNOWN
   * 0; 2 when keys were reported as unknown ("pf_revision_time" never is); -1.
   * Parsers get the client data of this entry's registration, null when it has none. */
  int configurePf(KS_ConfigureSpec *specs, Pf *pf, char *record, int flags);

  /* The same for all registered entries, defaults in the order of registration.
   *
   * flags   with KS_CONFIGURE_PF_NESTED a table or array is not an error: it is passed
   *         as a parameter-file text of one entry, "key &Arr{\n...}\n", which lives
   *         until the entry takes another one or ends; with KS_CONFIGURE_PF_MISSING
   *         entries without a key are reported, with result 2 */
  int configurePf(Pf *pf, int flags);

  /* configurePf(pf, 0), with a message of its own after a failure. */
  int configure(Pf *pf);

  /* Sets registered entries from pairs of a name and a char * value, ended by a null
   * name written as (char *)nullptr.  0; 2 when names were unknown, which is reported;
   * -1. */
  int configure(const char *name, ...);
  int configure(char *name, ...);
  int vconfigure(char *name, va_list values);
  int configureVarargs(char *name, va_list values);

 private:
  int registerSpec(KS_ConfigureSpec *spec, char *record, const char *label,
                   void *client_data, KS_ConfigureParser parser);
  void *clientDataOf(const KS_ConfigureSpec *spec) const;
  int applyTable(KS_ConfigureSpec *specs, Pf *pf, char *record, int flags);
  int applyRegistered(Pf *pf, int flags);
  int reportMissing(Pf *pf) const;

  Array<std::string, KSConfigureSpecs *> by_name_;
  Table<KSConfigureSpecs *> registered_;  // owns them, in order of registration
  Array<std::string, KS_ConfigureParser> parsers_;
};

#endif
