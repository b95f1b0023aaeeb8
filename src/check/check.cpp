// Checks pattern and configuration files before a run.
#include <cstdio>

int main() {
    std::puts("usage: quendil-check");
    return 0;
}
