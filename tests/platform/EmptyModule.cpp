/// A module without the window's entry.
extern "C" int somethingElse() {
  return 0;
}
