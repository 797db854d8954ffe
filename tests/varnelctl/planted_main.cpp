// A program that tells by its exit code that it was run.
int main() {
  return 42;
}
