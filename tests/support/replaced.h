// Stands in for a part of the system while it lives: a base of the stand-in, or a variable beside it.
#pragma once

template <auto Set>
class replaced {
 public:
  template <class Part>
  explicit replaced(Part* part) {
    Set(part);
  }
  replaced(replaced&&) = delete;
  ~replaced() { Set(nullptr); }
};
