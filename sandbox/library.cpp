// A library of the product for other people's programs to map.
extern "C" int sampledVersion() {
    return 1;
}
