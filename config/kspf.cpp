#include "config/kspf.h"

#include <utility>

#include "config/internal/kspf_contents.h"
#include "config/internal/replace_file.h"
#include "platform/pf/shared/pf_files.h"
#include "platform/pf/shared/pf_write.h"

using ksutil::kspf_guarded;
using ksutil::kspf_path;
using ksutil::PfDocument;
using ksutil::PfError;
using ksutil::PfFile;
using ksutil::PfNode;
using ksutil::PfPath;

namespace {

bool parse_named(const char *function, const PfFile &file, PfDocument &document) {
  PfError error;
  if (document.parse(file.text, file.path, error)) return true;
  const std::string place = file.path.empty() ? "line " : file.path + ":";
  ks_register_error(0, "KSPf::%s: %s%ld: %s.\n", function, place.c_str(), error.line,
                    error.cause.c_str());
  return false;
}

}  // namespace

KSPf::KSPf(const KSPf &other) noexcept : contents_(other.contents_) {
  if (contents_ != nullptr) contents_->owners.fetch_add(1, std::memory_order_relaxed);
}

KSPf::KSPf(KSPf &&other) noexcept
    : contents_(std::exchange(other.contents_, nullptr)) {}

KSPf &KSPf::operator=(KSPf other) noexcept {
  std::swap(contents_, other.contents_);
  return *this;
}

KSPf::~KSPf() {
  if (contents_ != nullptr &&
      contents_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete contents_;
  }
}

const KSPf::Contents &KSPf::contents() const {
  static const Contents empty;
  return contents_ == nullptr ? empty : *contents_;
}

/* The contents for this object alone, copied when others share them. */
KSPf::Contents &KSPf::changeable() {
  if (contents_ == nullptr) {
    contents_ = new Contents;
  } else if (contents_->owners.load(std::memory_order_acquire) > 1) {
    KSPf own(new Contents{{1}, contents_->document});
    std::swap(contents_, own.contents_);
  }
  return *contents_;
}

int KSPf::read(const std::string &name) {
  return kspf_guarded("read", [&] {
    std::vector<PfFile> files;
    if (!ksutil::find_pf_files("KSPf::read", name, files)) return -1;
    KSPf merged(new Contents);
    for (const PfFile &file : files) {
      PfDocument next;
      const bool first = &file == &files.front();
      PfDocument &into = first ? merged.contents_->document : next;
      if (!parse_named("read", file, into)) return -1;
      if (!first) merged.contents_->document.merge(next, {});
    }
    *this = std::move(merged);
    return 0;
  });
}

int KSPf::readFile(const std::string &path) {
  return kspf_guarded("readFile", [&] {
    PfFile file;
    if (!ksutil::read_pf_file("KSPf::readFile", path, file)) return -1;
    KSPf made(new Contents);
    if (!parse_named("readFile", file, made.contents_->document)) return -1;
    *this = std::move(made);
    return 0;
  });
}

int KSPf::readText(const std::string &text, const std::string &name) {
  return kspf_guarded("readText", [&] {
    KSPf made(new Contents);
    if (!parse_named("readText", {name, text}, made.contents_->document)) return -1;
    *this = std::move(made);
    return 0;
  });
}

int KSPf::readPf(Pf *pf) {
  return kspf_guarded("readPf", [&] {
    if (pf_kind(pf) != PFARR) {
      ks_register_error(0, "KSPf::readPf: The tree must be an array.\n");
      return -1;
    }
    return readText(ksutil::write_pf(*pf));
  });
}

int KSPf::text(std::string &text) const {
  return kspf_guarded("text", [&] {
    text = contents().document.text();
    return 0;
  });
}

int KSPf::write(const std::string &path) const {
  return kspf_guarded("write", [&] {
    const std::string text = contents().document.text();
    if (text.size() > kPfMaxBytes) {
      ks_register_error(0, "KSPf::write: %s would be longer than %d bytes.\n",
                        path.c_str(), static_cast<int>(kPfMaxBytes));
      return -1;
    }
    errno = 0;
    if (!ksutil::replace_file(path, text)) {
      ks_register_error(1, "KSPf::write: Cannot write %s.\n", path.c_str());
      return -1;
    }
    return 0;
  });
}

int KSPf::getPf(const std::string &path, Pf **pf) const {
  *pf = nullptr;
  return kspf_guarded("getPf", [&] {
    PfPath steps;
    if (!kspf_path("getPf", path, steps)) return -1;
    const PfNode *const node = contents().document.find(steps);
    if (node == nullptr) {
      ks_register_error(0, "KSPf::getPf: There is no %s.\n", path.c_str());
      return -1;
    }
    *pf = PfDocument::tree(*node, 0).release();
    return 0;
  });
}

int KSPf::setValue(const char *function, const std::string &path,
                   const std::string &value, int how) {
  return kspf_guarded(function, [&] {
    PfPath steps;
    if (!kspf_path(function, path, steps)) return -1;
    if (value.find('\0') != value.npos) {
      ks_register_error(0, "KSPf::%s: The value for %s holds a NUL byte.\n", function,
                        path.c_str());
      return -1;
    }
    PfNode node = ksutil::text_node(value);
    PfError error;
    if ((how & kWritten) != 0 && !ksutil::parse_value(value, node, error)) {
      ks_register_error(0, "KSPf::%s: Faulty value for %s: line %ld: %s.\n", function,
                        path.c_str(), error.line, error.cause.c_str());
      return -1;
    }
    PfDocument &document = changeable().document;
    std::string cause;
    if ((how & kInsert) != 0 ? document.insert(steps, node, cause)
                             : document.set(steps, node, cause)) {
      return 0;
    }
    ks_register_error(0, "KSPf::%s: Cannot set %s: %s.\n", function, path.c_str(),
                      cause.c_str());
    return -1;
  });
}

int KSPf::set(const std::string &path, const std::string &text) {
  return setValue("set", path, text, 0);
}

int KSPf::setWritten(const std::string &path, const std::string &written) {
  return setValue("setWritten", path, written, kWritten);
}

int KSPf::insert(const std::string &path, const std::string &text) {
  return setValue("insert", path, text, kInsert);
}

int KSPf::insertWritten(const std::string &path, const std::string &written) {
  return setValue("insertWritten", path, written, kInsert | kWritten);
}

int KSPf::remove(const std::string &path) {
  return kspf_guarded("remove", [&] {
    PfPath steps;
    if (!kspf_path("remove", path, steps)) return -1;
    std::string cause;
    if (changeable().document.remove(steps, cause)) return 0;
    ks_register_error(0, "KSPf::remove: Cannot remove %s: %s.\n", path.c_str(),
                      cause.c_str());
    return -1;
  });
}

int KSPf::merge(const KSPf &later, int flags) {
  return kspf_guarded("merge", [&] {
    const KSPf from(later);  // merging a file with itself copies it first
    PfDocument merged(contents().document);
    merged.merge(from.contents().document,
                 {(flags & KSPF_APPEND_TABLES) != 0, (flags & KSPF_KEEP_PRESENT) != 0});
    *this = KSPf(new Contents{{1}, std::move(merged)});
    return 0;
  });
}

int KSPf::format() {
  return kspf_guarded("format", [&] {
    PfDocument formatted(contents().document);
    formatted.format();
    *this = KSPf(new Contents{{1}, std::move(formatted)});
    return 0;
  });
}
