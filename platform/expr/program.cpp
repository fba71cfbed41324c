#include "platform/expr/internal/program.h"

#include <algorithm>
#include <atomic>

#include "platform/expr/internal/parser.h"

namespace ksutil::expr {
namespace {

std::atomic<std::uint64_t> last_id{0};

}  // namespace

Workspace::Workspace() : impl_(std::make_unique<Impl>()) {}
Workspace::~Workspace() = default;

Program::Program(std::unique_ptr<const Code> code) : code_(std::move(code)) {}
Program::~Program() = default;

std::unique_ptr<const Program> Program::compile(std::string_view text,
                                                const Fields &fields, Error &error) {
  if (text.size() > kMaxLength) {
    error = {kMaxLength, "expected at most 65536 bytes"};
    return nullptr;
  }
  auto code = std::make_unique<Code>();
  Generator generator(*code, fields, error);
  if (!parse(text, generator, error)) return nullptr;
  code->id = ++last_id;
  return std::unique_ptr<const Program>(new Program(std::move(code)));
}

Type Program::type() const { return code_->type; }
bool Program::is_constant() const { return code_->constant; }
int Program::only_slot() const { return code_->only_slot; }

bool Program::evaluate(const Record &record, Workspace &workspace,
                       Value &result) const {
  Workspace::Impl &work = workspace.impl();
  if (work.loaded != code_->id) {
    const std::size_t size = code_->temporaries + code_->constants.size();
    if (work.registers.size() < size) work.registers.resize(size);
    std::copy(code_->constants.begin(), code_->constants.end(),
              work.registers.begin() + static_cast<std::ptrdiff_t>(code_->temporaries));
    work.loaded = code_->id;
  }
  work.scratch.clear();
  Value *const registers = work.registers.data();
  if (!run(code_->instructions.data(), registers, record, work.scratch)) return false;
  result = registers[code_->result];
  return true;
}

bool convert(const Value &value, Type type, Workspace &workspace, Value &result) {
  return convert_into(value, type, workspace.impl().converted, result);
}

}  // namespace ksutil::expr
