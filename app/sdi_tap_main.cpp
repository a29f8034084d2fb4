#include "app/main.h"

int main(int argc, char** argv) {
    return ovtx::app::sdi_tap::v1::processEntry(argc, argv);
}
