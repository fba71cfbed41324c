/* KSConfigure: fills the members of a plain record from texts, driven by a table that
 * names each member, its type, its default and its offset. */
#ifndef KSUTIL_CONFIG_KSCONFIGURE_H
#define KSUTIL_CONFIG_KSCONFIGURE_H

#include <cstdarg>
#include <memory>
#include <string>

#include "core/Array.h"
#include "core/Table.h"
#include "platform/pf/pf.h"
#include "platform/stock/export.h"

enum {
  KS_CONFIGURE_NULL_OK = 1,
  KS_CONFIGURE_NODEFAULT = 8,
  KS_CONFIGURE_CHANGED = 16
};

struct KS_ConfigureSpec;

struct KS_ConfigureCustom {
  int (*parseProc)(KS_ConfigureSpec *, void *custom_data, char *value, char *record,
                   int offset, void *client_data);
  char *(*printProc)(KS_ConfigureSpec *, void *custom_data, char *record, int offset,
                     void *client_data);
  void *clientData;
};

struct KS_ConfigureSpec {
  const char *type;
  const char *name;
  const char *default_value;
  int offset;
  int flags;
  KS_ConfigureCustom *custom;
};

typedef int (*KS_ConfigureParser)(KS_ConfigureSpec *spec, char *value, char *record,
                                  void *client_data);

extern "C" KSUTIL_API int KS_ParseConfigValue(KS_ConfigureSpec *spec, char *value,
                                              char *record, void *client_data);

struct KSConfigureSpecs;

class KSUTIL_API KSConfigure {
 public:
  KSConfigure();
  virtual ~KSConfigure();
  KSConfigure(const KSConfigure &) = delete;
  KSConfigure &operator=(const KSConfigure &) = delete;

  int addTypeParser(std::string type, KS_ConfigureParser parser);
  int setConfigureSpecs(KS_ConfigureSpec *specs, char *record, const char *label,
                        void *client_data, int set_defaults);
  int configurePf(KS_ConfigureSpec *specs, Pf *pf, char *record, int flags);
  int configurePf(Pf *pf, int flags);
  int configure(Pf *pf);
  int configure(const char *name, ...);
  int configure(char *name, ...);
  int vconfigure(char *name, va_list values);
  int configureVarargs(char *name, va_list values);

 private:
  Array<std::string, KSConfigureSpecs *> by_name_;
  Table<KSConfigureSpecs *> registered_;
  Array<std::string, KS_ConfigureParser> parsers_;
};

#endif
