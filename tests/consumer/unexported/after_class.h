// Declares what the library does not export.
class VARNEL_API Counter {
 public:
  int Count() const { return 1; }
};

int Count();
