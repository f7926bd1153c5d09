// Writes the valid database set that the db_* fuzz targets start from: fuzz_make_seeds BASE
#include <qvgeo/fuzz/harness.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_make_seeds BASE\n");
        return 2;
    }
    qvfuzz::WriteValidDatabaseSet(argv[1]);
    return 0;
}
