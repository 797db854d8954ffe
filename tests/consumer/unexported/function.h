// Declares what the library does not export.
namespace varnel {

int Count(const char* text, int length);

}  // namespace varnel
