// Uses an installed libkt: a string, a codec and the build identification.
#include <kt/kt.h>

#include <cstdio>
#include <cstring>

int main() {
    KT::CString text("kt");
    KT::CString encoded;
    encoded.encodeBase64(text, text.correction());
    if (!(encoded == "a3Q=")) return 1;
    if (std::strncmp(__rev__lib_kt__kt__, "lib.kt-0.1: ", 12) != 0) return 1;
    std::printf("%s\n", encoded.c_str());
    return 0;
}
