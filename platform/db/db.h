/* db: databases of fixed-width tables, addressed with a Dbptr.
 *
 * A Dbptr names a database, a table of it, a field of that and a record; each member may
 * be dbALL (not chosen).  Record numbers count from 0; dbNULL is the table's null record
 * and dbSCRATCH its scratch record, a row in memory that belongs to the handle.
 *
 * Reading follows the table: after another program has appended or rewritten rows, the
 * next dbquery(dbq_record_count), dbmatches or dfiletime sees it, and reads after that
 * show the new rows.
 *
 * Threads: different handles may be used from different threads; one handle belongs to
 * one thread at a time.
 * Errors: -1 or a Dbptr with dbINVALID in it, with a message in the error register. */
#ifndef KSUTIL_PLATFORM_DB_DB_H
#define KSUTIL_PLATFORM_DB_DB_H

#include "platform/stock/export.h"
#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"

struct Dbptr {
  int database, table, field;
  long record;
};

/* Distinct, and none of them -1, which rows use for "no row". */
enum { dbINVALID = -102, dbNULL = -103, dbSCRATCH = -104, dbALL = -105 };

/* A compiled expression; see dbex_compile. */
struct Expression;

/* Facts that dbquery gives, and the type that `result` points to.  Texts and lists
 * belong to the database and live until it is closed. */
enum {
  dbq_record_count,  // long: rows now; 0 while the table has no file.  Looks at the store
  dbq_file_name,     // const char *: the table's file
  dbq_dir_name,      // const char *: its directory
  dbq_database_name,    // const char *
  dbq_schema_name,      // const char *
  dbq_table_name,       // const char *
  dbq_table_present,    // int: 1 when the table has a file
  dbq_record_size,      // long: bytes of a record as stored, newline included
  dbq_tables,           // Tbl *: names of the schema's tables
  dbq_fields,           // Tbl *: names of the table's fields, in order
  dbq_primary_key,      // Tbl *: fields, or "low::high" for a range
  dbq_field_type,       // int: dbINTEGER ... dbDATE, of the pointer's field
  dbq_field_size,       // int: characters
  dbq_field_format,     // const char *: printf format
  dbq_field_null,       // const char *: text of the null
  dbq_unreadable_count  // long: records that cannot be read.  Of a table: rows that are
                        // broken or hold a field that its type does not read; reads the
                        // whole table.  Of a view: those that were left out when it was
                        // made, and when the views it was made of were made
};

enum { dbINTEGER = 1, dbREAL, dbSTRING, dbTIME, dbDATE, dbYEARDAY, dbPOINTER };

/* Types of expression results: long, double, char * (a new text), int, double. */
enum { dbexINTEGER = 1, dbexREAL, dbexTEXT, dbexBOOLEAN, dbexTIME };

extern "C" {

/* Opens a database.  mode "r" or "r+"; 0, or -1 with *db invalid.  A database needs its
 * descriptor file or at least one table file.  dbopen_noshare gives a handle with caches
 * of its own; dbopen may share one that this process has open under the same name and
 * mode (each must be closed).  A relative name is taken from the working directory of the
 * moment, and the database stays that one when the program goes to another directory. */
KSUTIL_API int dbopen(const char *name, const char *mode, Dbptr *db);
KSUTIL_API int dbopen_noshare(const char *name, const char *mode, Dbptr *db);

/* Makes an empty database of a schema: writes its descriptor.  0 or -1. */
KSUTIL_API int dbcreate(const char *name, const char *schema);

/* Closes a handle and everything obtained from it; 0 or -1. */
KSUTIL_API int dbclose(Dbptr db);

/* A scratch database in memory; dbclose frees it.  May be called from any thread. */
KSUTIL_API Dbptr dbtmp(const char *schema);

/* A Dbptr whose members are all dbINVALID. */
KSUTIL_API Dbptr dbinvalid(void);

/* Moves a Dbptr.  Null or empty names keep what it has; `db` is reserved.  A table
 * without a record text gets record dbALL; `record` is a number, "dbALL", "dbNULL" or
 * "dbSCRATCH".  An unknown table or field gives that member dbINVALID and a message. */
KSUTIL_API Dbptr dblookup(Dbptr dbp, const char *db, const char *table,
                          const char *field, const char *record);

/* A fact about a database, table or field; see the codes above.  0 or -1. */
KSUTIL_API int dbquery(Dbptr db, int code, void *result);

/* The text of a record exactly as stored, its newline included, or of the chosen field
 * without blanks at its right end.  `text` holds dbq_record_size + 1 bytes.  With a null
 * `text` the record is copied into the scratch record.  0 or -1. */
KSUTIL_API int dbget(Dbptr db, char *text);

/* Reads fields of a record: name, address, ..., (char *)0.
 * Addresses: long * for integers, double * for reals, times and load dates, char * for
 * texts (width + 1 bytes; blanks at the right end are cut), void ** for pointers.
 * All or nothing: -1 with no result touched for an unknown field or an unreadable one. */
KSUTIL_API int dbgetv(Dbptr db, ...);

/* Writes fields of a record: name, value, ..., (char *)0.
 * Values: long for integers, double for reals, times and load dates, const char * for
 * texts, void * for pointers: an int argument for an integer or a real is an error that no
 * compiler sees; C++ programs write with put_values of values.h, which has no such trap.
 * All or nothing; what does not fit is an error, never cut.  Fields not named keep their
 * text, those that another program has changed meanwhile too. */
KSUTIL_API int dbputv(Dbptr db, ...);

/* Appends a row: the number of the record, or -1.  A null `text` appends the scratch
 * record.  A text of another length than the table's records is refused. */
KSUTIL_API long dbadd(Dbptr db, const char *text);

/* dbputv on a new row that starts as the null record: the number of the record, or -1.
 * lddate is set to now unless it is among the names. */
KSUTIL_API long dbaddv(Dbptr db, ...);

/* Overwrites the record, or the chosen field of it.  A null `text` writes the scratch
 * record over the whole record.  0 or -1. */
KSUTIL_API int dbput(Dbptr db, const char *text);

/* Rows of `table` that match the record `key`.
 *
 * kpattern,   in/out: what to compare, item by item, of the key and of the table: a field,
 * tpattern    an expression, or low::high of either.  Null lists are filled in with the
 *             fields that both tables share by their keys: the first key of the table, then
 *             of the key's table, that the other has all fields of, then a foreign key.
 *             The caller frees the lists and their texts.
 * hook        in/out: keeps the index between calls; free_hook releases it.  It may
 *             outlive the database.  Another table or pattern begins it anew.
 * records     out, untouched on failure: a new list of record numbers (as pointers:
 *             (long)gettbl(t, i)), ascending; the caller frees it with freetbl(t, 0).
 *             May be null.
 * Two items match when they are equal, or when their ranges overlap, ends included.
 * Texts are compared without blanks at the right end; ranges are of numbers.  A null key
 * matches nothing; a null end of a range is open; a range that ends before it begins
 * matches nothing.  Returns the number of matches, or -1. */
KSUTIL_API long dbmatches(Dbptr key, Dbptr table, Tbl **kpattern, Tbl **tpattern,
                          Hook **hook, Tbl **records);

/* Evaluates an expression on a record.  `type` and `result` as above; a time is a
 * double.  0; 1 when the value is null (the result then holds the null's own number or
 * text); -1 with a message.  Constant expressions need no record. */
KSUTIL_API int dbex_evalstr(Dbptr db, const char *text, int type, void *result);

/* The same in two steps.  dbex_eval may run in several threads on one expression; the
 * expression must not outlive the database.  0 or -1 ("Can't compile ..."-style message
 * with the position). */
KSUTIL_API int dbex_compile(Dbptr db, const char *text, Expression **expression,
                            int type);
KSUTIL_API int dbex_eval(Dbptr db, Expression *expression, void *result);
KSUTIL_API void dbex_free(Expression *expression);

/* Views: lists of records made from tables or other views, used like a table with dblookup
 * (by record and field), dbquery, dbgetv, expressions, dbmatches (as the key, with
 * patterns) and the functions below; they are not written.
 *
 * A record of a view is a tuple of records of stored tables.  Which records these are is
 * settled when the view is made; their values are read when they are used.  Fields are
 * those of its tables in order; a name that several tables have means the first of them,
 * "table.field" any.
 * Records that cannot be read are left out, with one message for all of them; a program
 * that must tell its user asks dbquery for dbq_unreadable_count.  A null is not true.  A
 * view lives until dbfree_view or dbclose.  On failure a Dbptr with dbINVALID in it. */

/* The records for which an expression is true. */
KSUTIL_API Dbptr dbsubset(Dbptr db, const char *expression);

/* The records in the order of a list of expressions (char *): ascending, nulls first, texts
 * byte by byte, equal ones as they were.  flags: dbSORT_REVERSE sorts the other way round,
 * dbSORT_UNIQUE keeps the first of equal ones. */
enum { dbSORT_REVERSE = 1, dbSORT_UNIQUE = 2 };
KSUTIL_API Dbptr dbsort(Dbptr db, Tbl *keys, int flags);

/* Each record of `left` with each of `right` that matches it, in the order of `left`, then
 * of `right`.  Both are of one database and have no table in common.
 *
 * lkeys,   patterns as those of dbmatches; one null list is like the other.  Both null:
 * rkeys    natural keys as in dbmatches, of those two tables that have most in common */
KSUTIL_API Dbptr dbjoin(Dbptr left, Dbptr right, Tbl *lkeys, Tbl *rkeys);

/* One record for each run of neighbours with equal keys (expressions): the first of them.
 * Sorted by these keys before, each value has one group.  A record that cannot be read is
 * a failure here. */
KSUTIL_API Dbptr dbgroup(Dbptr db, Tbl *keys);

/* The records for which a record of dbgroup's view stands: start <= number < end in the
 * table or view that was grouped.  0 or -1. */
KSUTIL_API int dbget_range(Dbptr group, long *start, long *end);

/* Frees a view; others made from it stay.  0 or -1. */
KSUTIL_API int dbfree_view(Dbptr view);

/* The next id of a counter ("evid", "orid", ...), above every id in use; -1 on failure.
 * No two calls, in any process, get the same id. */
KSUTIL_API long dbnextid(Dbptr db, const char *key);

/* When the table was last changed, epoch seconds; -9999999999.999, with a message, when
 * it has no file. */
KSUTIL_API double dfiletime(Dbptr db);

}  // extern "C"
#endif
