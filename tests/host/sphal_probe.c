// A library for the sphal namespace tests to load: it says where it was loaded from.

int sphal_probe_answer(void) {
    return 42;
}
