// A set of section names. A standard set takes three times as long for files of 100,000 sections.
#ifndef CORVANE_SRC_CONFIG_NAME_SET_H_
#define CORVANE_SRC_CONFIG_NAME_SET_H_

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace corvane {

// Holds pointers to the names in a table with linear probing, at most half full.
class NameSet {
 public:
  bool empty() const { return count_ == 0; }

  // False if an equal name is there already.
  bool Insert(const std::string& name) {
    if (2 * (count_ + 1) > slots_.size()) Grow();
    const std::size_t hash = std::hash<std::string>()(name);
    Slot* const slot = Find(hash, name);
    if (slot->name != nullptr) return false;
    *slot = Slot{hash, &name};
    ++count_;
    return true;
  }

 private:
  struct Slot {
    std::size_t hash;
    const std::string* name;  // null: free
  };

  // The slot with an equal name, or the free one for it.
  Slot* Find(std::size_t hash, const std::string& name) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
      Slot& slot = slots_[at];
      if (slot.name == nullptr || (slot.hash == hash && *slot.name == name)) return &slot;
    }
  }

  void Grow() {
    std::vector<Slot> smaller(slots_.empty() ? 128 : 2 * slots_.size());
    smaller.swap(slots_);
    for (const Slot& slot : smaller) {
      if (slot.name != nullptr) *Find(slot.hash, *slot.name) = slot;
    }
  }

  std::vector<Slot> slots_;  // a power of two of them
  std::size_t count_ = 0;
};

}  // namespace corvane

#endif  // CORVANE_SRC_CONFIG_NAME_SET_H_
