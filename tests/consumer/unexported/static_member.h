// Declares what the library does not export.
struct Counter {
  static int count;
};
