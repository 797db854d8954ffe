// Declares what the library does not export.
class VARNEL_API Outer {
 public:
  int Known() const;
  // The mark of the outer class does not reach it.
  struct Inner {
    ~Inner();
  };
};
