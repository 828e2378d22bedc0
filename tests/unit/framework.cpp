// Needed to compile the framework's headers for: a test program takes them from here.
int main() {
    return 0;
}
