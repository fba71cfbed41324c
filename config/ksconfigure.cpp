#include "config/ksconfigure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "core/register.h"
#include "platform/elog/failure.h"
#include "platform/pf/shared/pf_write.h"
#include "platform/stock/memory.h"
#include "platform/stock/owners.h"

/* One registered entry. */
struct KSConfigureSpecs : ksutil::SeamAllocated {
  KS_ConfigureSpec *spec = nullptr;  // the caller's
  char *record = nullptr;            // the caller's
  KS_ConfigureParser parser = nullptr;
  ksutil::MallocPtr<char> label;
  void *client_data = nullptr;
  ksutil::MallocPtr<char> nested;  // the nested value taken last: a "ptr" points to it
};

namespace {

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::MallocPtr;
using ksutil::TblPtr;

bool is_end(const KS_ConfigureSpec &spec) {
  return spec.type == nullptr || std::strcmp(spec.type, "end") == 0;
}

std::string text_of(const char *text) { return text == nullptr ? "" : text; }

void clear_changed(KS_ConfigureSpec &spec) { spec.flags &= ~KS_CONFIGURE_CHANGED; }

bool takes_default(const KS_ConfigureSpec &spec) {
  return (spec.flags & KS_CONFIGURE_NODEFAULT) == 0;
}

/* Parsers take writable texts because a "ptr" member may point to one. */
int parse_default(KS_ConfigureParser parser, KS_ConfigureSpec &spec, char *record,
                  void *client_data) {
  if (parser(&spec, const_cast<char *>(spec.default_value), record, client_data) >= 0) {
    return 0;
  }
  return fail("KSConfigure::configurePf", "KS_ParseConfigValue() error for default");
}

int parse_parameter(KS_ConfigureParser parser, KS_ConfigureSpec &spec, char *value,
                    char *record, void *client_data) {
  if (parser(&spec, value, record, client_data) >= 0) return 0;
  return fail("KSConfigure::configurePf", "KS_ParseConfigValue() error for parameter");
}

KS_ConfigureSpec *find_spec(KS_ConfigureSpec *specs, const char *name) {
  for (KS_ConfigureSpec *spec = specs; !is_end(*spec); ++spec) {
    if (KS_Strcmp(spec->name, name) == 0) return spec;
  }
  return nullptr;
}

/* Reports a key for which there is no entry; returns whether it did. */
bool report_unknown(const char *key, int flags) {
  if ((flags & KS_CONFIGURE_PF_UNKNOWN) == 0) return false;
  if (std::strcmp(key, "pf_revision_time") == 0) return false;
  fail("KSConfigure::configurePf", "Input parameter %s not in config specs", key);
  return true;
}

/* A nested value as a parameter-file text with one entry; null with a message when
 * memory is short. */
MallocPtr<char> nested_text(const char *key, Pf *value) {
  const MallocPtr<char> inside(pf2string(value));
  MallocPtr<char> text;
  if (inside != nullptr) {
    std::string whole = ksutil::written_name(key);
    whole += pf_kind(value) == PFARR ? " &Arr{\n" : " &Tbl{\n";
    whole += inside.get();
    whole += "}\n";
    text.reset(ks_strdup(whole.c_str()));
  }
  if (text == nullptr) {
    fail("KSConfigure::configurePf", "pf2string() error for key %s", key);
  }
  return text;
}

/* The text that a parser gets for a key of the tree: the tree's own text, or a new one
 * kept in `owned`.  False with a message when the value has no text. */
bool value_of(Pf *pf, const char *key, int flags, char *&text, MallocPtr<char> &owned) {
  void *value = nullptr;
  const int kind = pfget(pf, key, &value);
  if (kind != PFTBL && kind != PFARR) {
    text = static_cast<char *>(value);
    return true;
  }
  if ((flags & KS_CONFIGURE_PF_NESTED) != 0) {
    owned = nested_text(key, static_cast<Pf *>(value));
    text = owned.get();
    return owned != nullptr;
  }
  if (kind == PFTBL) {
    fail("KSConfigure::configurePf", "Input parameter %s is not allowed to be a table",
         key);
  } else {
    fail("KSConfigure::configurePf", "Input parameter %s is not allowed to be an array",
         key);
  }
  return false;
}

/* Calls take(key) for each key of a tree in sorted order, until one call returns -1.
 * Returns -1 then, 2 when a call has returned 2, else 0. */
template <class Take>
int for_each_key(Pf *pf, const Take &take) {
  if (pf_kind(pf) != PFARR) return 0;
  const TblPtr keys(pfkeys(pf));
  if (keys == nullptr) return -1;
  int result = 0;
  for (const char *const key : ksutil::to_vector<const char>(keys.get())) {
    if (exec_times_debug != 0) ks_ptimes(("Parsing " + std::string(key)).c_str(), 0);
    const int taken = take(key);
    if (taken < 0) return -1;
    result = std::max(result, taken);
  }
  return result;
}

}  // namespace

KSConfigure::KSConfigure() {
  for (const char *type :
       {"boolean", "custom", "double", "end", "int", "string", "ptr", "uid"}) {
    parsers_.set(type, KS_ParseConfigValue);
  }
}

KSConfigure::~KSConfigure() {
  for (KSConfigureSpecs *entry : registered_) delete entry;
}

int KSConfigure::addTypeParser(std::string type, KS_ConfigureParser parser) {
  return at_boundary("KSConfigure::addTypeParser", [&]() -> int {
    parsers_.set(type, parser);
    return 0;
  });
}

/* The new entry replaces the earlier one after the last step that can fail. */
int KSConfigure::registerSpec(KS_ConfigureSpec *spec, char *record, const char *label,
                              void *client_data, KS_ConfigureParser parser) {
  errno = 0;
  std::unique_ptr<KSConfigureSpecs> made(new (std::nothrow) KSConfigureSpecs);
  if (made != nullptr && label != nullptr) made->label.reset(ks_strdup(label));
  if (made == nullptr || (label != nullptr && made->label == nullptr)) {
    ks_register_error(1,
                      "KSConfigure::setConfigureSpecs: new KSConfigureSpecs() error.");
    return -1;
  }
  made->spec = spec;
  made->record = record;
  made->parser = parser;
  made->client_data = client_data;
  const std::string name = text_of(spec->name);
  KSConfigureSpecs *const earlier = by_name_.get(name);
  registered_.push(nullptr);
  try {
    by_name_.set(name, made.get());
  } catch (...) {
    registered_.del(registered_.size() - 1);
    throw;
  }
  registered_.set(registered_.size() - 1, made.release());
  if (earlier == nullptr) return 0;
  for (long i = 0; i < registered_.size(); ++i) {
    if (registered_.get(i) == earlier) registered_.del(i);
  }
  delete earlier;
  return 0;
}

int KSConfigure::setConfigureSpecs(KS_ConfigureSpec *specs, char *record,
                                   const char *label, void *client_data,
                                   int set_defaults) {
  return at_boundary("KSConfigure::setConfigureSpecs", [&]() -> int {
    if (specs == nullptr) {
      return fail("KSConfigure::setConfigureSpecs", "A table must be given");
    }
    for (KS_ConfigureSpec *spec = specs; !is_end(*spec); ++spec) {
      const KS_ConfigureParser parser = parsers_.get(spec->type);
      if (parser == nullptr) {
        ks_complain(0,
                    "KSConfigure::setConfigureSpecs: Cannot find parser for type '%s' "
                    "for name '%s'\n",
                    spec->type, text_of(spec->name).c_str());
        continue;
      }
      if (registerSpec(spec, record, label, client_data, parser) != 0) return -1;
    }
    if (set_defaults != 0 &&
        configurePf(specs, nullptr, record, KS_CONFIGURE_PF_DEFAULTS) < 0) {
      ks_register_error(
          0, "KSConfigure::setConfigureSpecs: this->configure(default) error.");
      return -1;
    }
    return 0;
  });
}

void *KSConfigure::clientDataOf(const KS_ConfigureSpec *spec) const {
  const KSConfigureSpecs *const entry = by_name_.get(text_of(spec->name));
  return entry == nullptr || entry->spec != spec ? nullptr : entry->client_data;
}

int KSConfigure::applyTable(KS_ConfigureSpec *specs, Pf *pf, char *record, int flags) {
  for (KS_ConfigureSpec *spec = specs; !is_end(*spec); ++spec) clear_changed(*spec);
  if ((flags & KS_CONFIGURE_PF_DEFAULTS) != 0) {
    for (KS_ConfigureSpec *spec = specs; !is_end(*spec); ++spec) {
      const KS_ConfigureParser parser = parsers_.get(spec->type);
      if (parser == nullptr || !takes_default(*spec)) continue;
      if (parse_default(parser, *spec, record, clientDataOf(spec)) != 0) return -1;
    }
  }
  return for_each_key(pf, [&](const char *key) {
    KS_ConfigureSpec *const spec = find_spec(specs, key);
    if (spec == nullptr) return report_unknown(key, flags) ? 2 : 0;
    const KS_ConfigureParser parser = parsers_.get(spec->type);
    if (parser == nullptr) return 0;
    char *value = nullptr;
    MallocPtr<char> owned;
    if (!value_of(pf, key, flags & ~KS_CONFIGURE_PF_NESTED, value, owned)) return -1;
    return parse_parameter(parser, *spec, value, record, clientDataOf(spec));
  });
}

int KSConfigure::configurePf(KS_ConfigureSpec *specs, Pf *pf, char *record, int flags) {
  if (specs == nullptr) {
    return fail("KSConfigure::configurePf", "A table must be given");
  }
  return at_boundary("KSConfigure::configurePf",
                     [&] { return applyTable(specs, pf, record, flags); });
}

int KSConfigure::reportMissing(Pf *pf) const {
  int result = 0;
  for (const KSConfigureSpecs *entry : registered_) {
    const std::string name = text_of(entry->spec->name);
    if (pfget(pf, name.c_str(), nullptr) != PFINVALID) continue;
    fail("KSConfigure::configurePf", "Spec parameter %s not in pf", name.c_str());
    result = 2;
  }
  return result;
}

int KSConfigure::applyRegistered(Pf *pf, int flags) {
  for (KSConfigureSpecs *entry : registered_) clear_changed(*entry->spec);
  if ((flags & KS_CONFIGURE_PF_DEFAULTS) != 0) {
    for (KSConfigureSpecs *entry : registered_) {
      if (takes_default(*entry->spec) &&
          parse_default(entry->parser, *entry->spec, entry->record,
                        entry->client_data) != 0) {
        return -1;
      }
    }
  }
  if (pf == nullptr) return 0;
  const int result = for_each_key(pf, [&](const char *key) {
    KSConfigureSpecs *const entry = by_name_.get(key);
    if (entry == nullptr) return report_unknown(key, flags) ? 2 : 0;
    char *value = nullptr;
    MallocPtr<char> owned;
    if (!value_of(pf, key, flags, value, owned)) return -1;
    const int parsed = parse_parameter(entry->parser, *entry->spec, value,
                                       entry->record, entry->client_data);
    if (parsed == 0 && owned != nullptr) entry->nested = std::move(owned);
    return parsed;
  });
  if (result < 0 || (flags & KS_CONFIGURE_PF_MISSING) == 0) return result;
  return std::max(result, reportMissing(pf));
}

int KSConfigure::configurePf(Pf *pf, int flags) {
  return at_boundary("KSConfigure::configurePf",
                     [&] { return applyRegistered(pf, flags); });
}

int KSConfigure::configure(Pf *pf) {
  const int result = configurePf(pf, 0);
  if (result < 0) {
    ks_register_error(0, "KSConfigure::configure: KS_ConfigurePf() error.");
  }
  return result;
}

int KSConfigure::configure(const char *name, ...) {
  va_list values;
  va_start(values, name);
  const int result = configureVarargs(const_cast<char *>(name), values);
  va_end(values);
  if (result < 0) {
    ks_register_error(0, "KSConfigure::configure: KS_ConfigureVarargs() error.");
  }
  return result;
}

int KSConfigure::configure(char *name, ...) {
  va_list values;
  va_start(values, name);
  const int result = configureVarargs(name, values);
  va_end(values);
  if (result < 0) {
    ks_register_error(0, "KSConfigure::configure: KS_ConfigureVarargs() error.");
  }
  return result;
}

int KSConfigure::vconfigure(char *name, va_list values) {
  const int result = configureVarargs(name, values);
  if (result < 0) {
    ks_register_error(0, "KSConfigure::vconfigure: KS_ConfigureVarargs() error.");
  }
  return result;
}

int KSConfigure::configureVarargs(char *name, va_list values) {
  return at_boundary("KSConfigure::configureVarargs", [&]() -> int {
    int result = 0;
    for (KSConfigureSpecs *entry : registered_) clear_changed(*entry->spec);
    for (const char *next = name; next != nullptr; next = va_arg(values, char *)) {
      char *const value = va_arg(values, char *);
      const KSConfigureSpecs *const entry = by_name_.get(next);
      if (entry == nullptr) {
        fail("KSConfigure::configureVarargs", "Input parameter %s not in config specs",
             next);
        result = 2;
      } else if (entry->parser(entry->spec, value, entry->record, entry->client_data) <
                 0) {
        return fail("KSConfigure::configureVarargs",
                    "KS_ParseConfigValue() error for parameter");
      }
    }
    return result;
  });
}
