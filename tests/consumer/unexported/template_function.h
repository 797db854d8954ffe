// Declares what the library does not export.
template <class T>
int Count(const T& value);
