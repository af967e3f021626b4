#include "shared/include/zarvoparser.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "base/text.h"
#include "shared/include/dynstore.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr std::int32_t LINE_BUFFER_SIZE = 4096;
constexpr std::size_t NOT_FOUND = static_cast<std::size_t>(-1);
/// From this many pairs on a block looks its keys up in an index.
constexpr std::size_t INDEXED_PAIRS = 16;

ReportSite here(int line = __builtin_LINE()) { return {".\\zarvoparser", line}; }

constexpr char OUT_OF_MEMORY[] = "out of memory";

template <typename Item>
const Item& checked(ReportSite site, const std::vector<Item>& items, std::uint32_t index) {
  if (index >= items.size()) {
    assertion_report(site, "out of bounds access. %d>=%d", static_cast<int>(index),
                     static_cast<int>(items.size()));
  }
  return items[index];
}

}  // namespace

// ---- Blocks -----------------------------------------------------------------------------------

ConfigBlock::ConfigBlock(const char* name) : name_(copy_or_stop(name, here(), OUT_OF_MEMORY)) {}

/// Takes nested blocks apart one by one: a file may nest them deeper than the stack is.
ConfigBlock::~ConfigBlock() {
  while (!children_.empty()) {
    try {
      if (children_.size() == children_.capacity()) children_.reserve(2 * children_.size());
    } catch (const std::bad_alloc&) {
      return;  // The rest is taken apart level by level.
    }
    std::vector<std::unique_ptr<ConfigBlock>>& inner = children_.back()->children_;
    if (inner.empty()) {
      children_.pop_back();
      continue;
    }
    std::unique_ptr<ConfigBlock> last = std::move(inner.back());
    inner.pop_back();
    children_.push_back(std::move(last));
  }
}

std::size_t ConfigBlock::find_pair(const char* key) const {
  if (index_ != nullptr) {
    std::size_t position = NOT_FOUND;
    with_memory(here(), OUT_OF_MEMORY, [&] {
      const auto found = index_->find(lower_cased(key));
      if (found != index_->end()) position = found->second;
    });
    return position;
  }
  const auto is_wanted = [=](const auto& pair) { return equals_ignoring_case(pair.key(), key); };
  const auto found = std::ranges::find_if(pairs_, is_wanted);
  return found != pairs_.end() ? static_cast<std::size_t>(found - pairs_.begin()) : NOT_FOUND;
}

void ConfigBlock::add_pair(const char* key, const char* value) {
  const std::size_t position = find_pair(key);
  if (position != NOT_FOUND) {
    return with_memory(here(), OUT_OF_MEMORY, [&] { pairs_[position].join(value); });
  }
  with_memory(here(), OUT_OF_MEMORY, [&] {
    // Most blocks have few pairs, and there may be a million blocks.
    if (pairs_.size() < 4) pairs_.reserve(pairs_.size() + 1);
    pairs_.emplace_back(key, value);
    if (pairs_.size() < INDEXED_PAIRS) return;
    if (index_ == nullptr) index_ = std::make_unique<PairIndex>();
    for (std::size_t i = index_->size(); i < pairs_.size(); ++i) {
      index_->emplace(lower_cased(pairs_[i].key()), i);
    }
  });
}

const char* ConfigBlock::find_value(const char* key) const {
  const std::size_t position = find_pair(key);
  return position != NOT_FOUND ? pairs_[position].value() : nullptr;
}

const ConfigPair& ConfigBlock::pair(std::uint32_t index) const {
  return checked(here(), pairs_, index);
}

ConfigBlock& ConfigBlock::child(std::uint32_t index) const {
  return *checked(here(), children_, index);
}

ConfigBlock& ConfigBlock::add_child(std::unique_ptr<ConfigBlock> child) {
  with_memory(here(), OUT_OF_MEMORY, [&] { children_.push_back(std::move(child)); });
  return *children_.back();
}

ConfigBlock& ConfigFile::block(std::uint32_t index) const {
  return *checked(here(), blocks_, index);
}

ConfigBlock& ConfigFile::add_block(std::unique_ptr<ConfigBlock> block) {
  with_memory(here(), OUT_OF_MEMORY, [&] { blocks_.push_back(std::move(block)); });
  return *blocks_.back();
}

void ConfigFile::set_version(const char* version) {
  version_ = copy_or_stop(version, here(), OUT_OF_MEMORY);
}

void ConfigFile::clear() {
  version_.reset();
  blocks_.clear();
}

// ---- Reading ----------------------------------------------------------------------------------

namespace {

/// Reads one stream into a file. Open blocks stand on a stack of their own, so that nesting costs
/// no stack of the machine's.
class Reader {
 public:
  Reader(std::FILE* stream, ConfigFile& file) : stream_(stream), file_(file) {}

  int read() {
    while (next_line()) {
      if (!take_line()) return -1;
    }
    if (open_.empty()) return 0;
    return report(BEGIN_ERROR, here(), "line %d : bad format, expecting \"}\" before end of file\n",
                  line_number_);
  }

 private:
  /// Reads the next line that is neither empty nor a comment, and trims it.
  bool next_line() {
    for (;;) {
      std::size_t length = 0;
      line_ = read_line(stream_, buffer_, sizeof buffer_, length);
      if (line_.text == nullptr) return false;
      ++line_number_;
      char* end = line_.text + length;
      while (end > line_.text && is_white_space(end[-1])) --end;
      *end = '\0';
      start_ = const_cast<char*>(skip_blanks(line_.text));
      if (*start_ != '\0' && *start_ != '#') return true;
    }
  }

  bool take_line() {
    if (!open_.empty() && *start_ == '}') {
      close_block();
      return true;
    }
    if (!split_pair()) return false;
    const bool first = !std::exchange(seen_line_, true);
    if (first && equals_ignoring_case(key_, "version")) {
      file_.set_version(value_);
    } else if (*value_ == '{') {
      open_block();
    } else if (!open_.empty()) {
      open_.back()->add_pair(key_, value_);
    } else {
      report(BEGIN_ERROR, here(), "line %d : bad format, key-value pair outside of block\n",
             line_number_);
      return false;
    }
    return true;
  }

  /// Cuts the line at its first "=" into key and value.
  bool split_pair() {
    char* const equals = std::strchr(start_, '=');
    char* end = equals;
    while (end != nullptr && end > start_ && is_white_space(end[-1])) --end;
    if (equals == nullptr || end == start_) {
      report(BEGIN_ERROR, here(), "line %d : bad format, expecting xxx = yyy\n", line_number_);
      return false;
    }
    *end = '\0';
    key_ = start_;
    value_ = skip_blanks(equals + 1);
    if (std::strchr(key_, ' ') == nullptr) return true;
    report(BEGIN_ERROR, here(), "line %d : bad format, expecting single token\n", line_number_);
    return false;
  }

  void open_block() {
    with_memory(here(), OUT_OF_MEMORY,
                [this] { open_.push_back(std::make_unique<ConfigBlock>(key_)); });
  }

  void close_block() {
    std::unique_ptr<ConfigBlock> block = std::move(open_.back());
    open_.pop_back();
    if (open_.empty()) {
      file_.add_block(std::move(block));
    } else {
      open_.back()->add_child(std::move(block));
    }
  }

  std::FILE* stream_;
  ConfigFile& file_;
  char buffer_[LINE_BUFFER_SIZE];
  FileLine line_;
  int line_number_ = 0;
  bool seen_line_ = false;
  char* start_ = nullptr;
  const char* key_ = nullptr;
  const char* value_ = nullptr;
  std::vector<std::unique_ptr<ConfigBlock>> open_;
};

}  // namespace

int ConfigFile::read(std::FILE* stream) {
  clear();
  return Reader(stream, *this).read();
}

// ---- Writing ----------------------------------------------------------------------------------

namespace {

class Writer {
 public:
  explicit Writer(std::FILE* stream) : stream_(stream) {}

  /// Writes a block and all below it, the open ones standing on a stack of their own.
  void write(const ConfigBlock& top) {
    open(top);
    while (!open_.empty()) {
      Open& last = open_.back();
      if (last.next_child < last.block->child_count()) {
        open(last.block->child(last.next_child++));
      } else {
        indentation_.drop_back(1);
        std::fprintf(stream_, "%s}\n", indentation_.str());
        open_.pop_back();
      }
    }
  }

 private:
  struct Open {
    const ConfigBlock* block;
    std::uint32_t next_child;
  };

  void open(const ConfigBlock& block) {
    std::fprintf(stream_, "%s%s = {\n", indentation_.str(), block.name());
    indentation_.append_char('\t');
    for (std::uint32_t i = 0; i < block.pair_count(); ++i) write_pair(block.pair(i));
    with_memory(here(), OUT_OF_MEMORY, [&] { open_.push_back({&block, 0}); });
  }

  /// One line for each value that was joined; nothing for an empty one at the end.
  void write_pair(const ConfigPair& pair) {
    const char* value = pair.value();
    do {
      const std::size_t length = std::strcspn(value, "\n");
      std::fprintf(stream_, "%s%s = %.*s\n", indentation_.str(), pair.key(),
                   static_cast<int>(length), value);
      value += length + (value[length] != '\0' ? 1 : 0);
    } while (*value != '\0');
  }

  std::FILE* stream_;
  DynStore indentation_;
  std::vector<Open> open_;
};

}  // namespace

int ConfigFile::write(std::FILE* stream) const {
  if (version_ != nullptr) std::fprintf(stream, "version = %s\n", version_.get());
  Writer writer(stream);
  for (const auto& block : blocks_) writer.write(*block);
  return 0;
}
