// Declares what the library does not export.
class Counter {
 public:
  int Count() const noexcept;
};
