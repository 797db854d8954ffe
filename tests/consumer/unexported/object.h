// Declares what the library does not export.
extern const int kCount;  // how many
