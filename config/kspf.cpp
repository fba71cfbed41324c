#include "config/kspf.h"

#include <utility>

#include "config/internal/kspf_contents.h"
#include "platform/elog/failure.h"
#include "platform/pf/shared/pf_files.h"
#include "platform/pf/shared/pf_write.h"
#include "platform/stock/draft_file.h"

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::fail_errno;
using ksutil::kspf_path;
using ksutil::PfDocument;
using ksutil::PfError;
using ksutil::PfFile;
using ksutil::PfNode;
using ksutil::PfPath;

namespace {

bool parse_named(const char *who, const PfFile &file, PfDocument &document) {
  PfError error;
  if (document.parse(file.text, file.path, error)) return true;
  const std::string place = file.path.empty() ? "line " : file.path + ":";
  return fail(who, "%s%ld: %s", place.c_str(), error.line, error.cause.c_str());
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

/* The contents of this object alone: copied first when other objects share them. */
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
  return at_boundary("KSPf::read", [&]() -> int {
    std::vector<PfFile> files;
    if (!ksutil::find_pf_files("KSPf::read", name, files)) return -1;
    KSPf merged(new Contents);
    for (const PfFile &file : files) {
      PfDocument next;
      const bool first = &file == &files.front();
      PfDocument &into = first ? merged.contents_->document : next;
      if (!parse_named("KSPf::read", file, into)) return -1;
      if (!first) merged.contents_->document.merge(next, {});
    }
    *this = std::move(merged);
    return 0;
  });
}

int KSPf::readFile(const std::string &path) {
  return at_boundary("KSPf::readFile", [&]() -> int {
    PfFile file;
    if (!ksutil::read_pf_file("KSPf::readFile", path, file)) return -1;
    KSPf made(new Contents);
    if (!parse_named("KSPf::readFile", file, made.contents_->document)) return -1;
    *this = std::move(made);
    return 0;
  });
}

int KSPf::readText(const std::string &text, const std::string &name) {
  return at_boundary("KSPf::readText", [&]() -> int {
    KSPf made(new Contents);
    if (!parse_named("KSPf::readText", {name, text}, made.contents_->document))
      return -1;
    *this = std::move(made);
    return 0;
  });
}

int KSPf::readPf(Pf *pf) {
  return at_boundary("KSPf::readPf", [&]() -> int {
    if (pf_kind(pf) != PFARR) {
      return fail("KSPf::readPf", "The tree must be an array");
    }
    return readText(ksutil::write_pf(*pf));
  });
}

int KSPf::text(std::string &text) const {
  return at_boundary("KSPf::text", [&]() -> int {
    text = contents().document.text();
    return 0;
  });
}

int KSPf::write(const std::string &path) const {
  return at_boundary("KSPf::write", [&]() -> int {
    const std::string text = contents().document.text();
    if (text.size() > kPfMaxBytes) {
      return fail("KSPf::write", "%s would be longer than %d bytes", path.c_str(),
                  static_cast<int>(kPfMaxBytes));
    }
    errno = 0;
    ksutil::DraftFile file;
    if (!file.open(path) || !file.write(text) || !file.put_in_place()) {
      return fail_errno("KSPf::write", "Cannot write %s", path.c_str());
    }
    return 0;
  });
}

int KSPf::getPf(const std::string &path, Pf **pf) const {
  *pf = nullptr;
  return at_boundary("KSPf::getPf", [&]() -> int {
    PfPath steps;
    if (!kspf_path("KSPf::getPf", path, steps)) return -1;
    const PfNode *const node = contents().document.find(steps);
    if (node == nullptr) {
      return fail("KSPf::getPf", "There is no %s", path.c_str());
    }
    *pf = PfDocument::tree(*node, 0).release();
    return 0;
  });
}

int KSPf::setValue(const char *who, const std::string &path, const std::string &value,
                   int how) {
  return at_boundary(who, [&]() -> int {
    PfPath steps;
    if (!kspf_path(who, path, steps)) return -1;
    if (value.find('\0') != value.npos) {
      return fail(who, "The value for %s holds a NUL byte", path.c_str());
    }
    PfNode node = ksutil::text_node(value);
    PfError error;
    if ((how & kWritten) != 0 && !ksutil::parse_value(value, node, error)) {
      return fail(who, "Faulty value for %s: line %ld: %s", path.c_str(), error.line,
                  error.cause.c_str());
    }
    PfDocument &document = changeable().document;
    std::string cause;
    if ((how & kInsert) != 0 ? document.insert(steps, node, cause)
                             : document.set(steps, node, cause)) {
      return 0;
    }
    return fail(who, "Cannot set %s: %s", path.c_str(), cause.c_str());
  });
}

int KSPf::set(const std::string &path, const std::string &text) {
  return setValue("KSPf::set", path, text, 0);
}

int KSPf::setWritten(const std::string &path, const std::string &written) {
  return setValue("KSPf::setWritten", path, written, kWritten);
}

int KSPf::insert(const std::string &path, const std::string &text) {
  return setValue("KSPf::insert", path, text, kInsert);
}

int KSPf::insertWritten(const std::string &path, const std::string &written) {
  return setValue("KSPf::insertWritten", path, written, kInsert | kWritten);
}

int KSPf::remove(const std::string &path) {
  return at_boundary("KSPf::remove", [&]() -> int {
    PfPath steps;
    if (!kspf_path("KSPf::remove", path, steps)) return -1;
    std::string cause;
    if (changeable().document.remove(steps, cause)) return 0;
    return fail("KSPf::remove", "Cannot remove %s: %s", path.c_str(), cause.c_str());
  });
}

int KSPf::merge(const KSPf &later, int flags) {
  return at_boundary("KSPf::merge", [&]() -> int {
    const KSPf from(later);  // merging a file with itself copies it first
    PfDocument merged(contents().document);
    merged.merge(from.contents().document,
                 {(flags & KSPF_APPEND_TABLES) != 0, (flags & KSPF_KEEP_PRESENT) != 0});
    *this = KSPf(new Contents{{1}, std::move(merged)});
    return 0;
  });
}

int KSPf::format() {
  return at_boundary("KSPf::format", [&]() -> int {
    PfDocument formatted(contents().document);
    formatted.format();
    *this = KSPf(new Contents{{1}, std::move(formatted)});
    return 0;
  });
}
