/* A host that loads the shared library from the path it is given, as a host does, and
 * prints the text of one message row, so that the library looks for its data archive
 * beside that path. It also checks that the first lookup, which loads the table, leaves
 * the thread's errno as it was. */
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

/* Common::GetMessageRow(unsigned int), an exported function of the library. */
typedef const unsigned short* (*GetMessageRowFunction)(unsigned int);

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s LIBRARY ROW\n", argv[0]);
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "cannot load %s: %s\n", argv[1], dlerror());
        return 1;
    }
    GetMessageRowFunction getRow =
        (GetMessageRowFunction)dlsym(library, "_ZN6Common13GetMessageRowEj");
    if (getRow == NULL) {
        fprintf(stderr, "Common::GetMessageRow is not exported\n");
        return 1;
    }
    errno = EDOM;
    const unsigned short* text = getRow((unsigned)atoi(argv[2]));
    if (errno != EDOM) {
        fprintf(stderr, "the lookup changed errno to %d\n", errno);
        return 1;
    }
    if (text == NULL) {
        fprintf(stderr, "no text\n");
        return 1;
    }
    /* The rows used here are ASCII. */
    for (; *text != 0; ++text) {
        putchar(*text < 0x80 ? (int)*text : '?');
    }
    putchar('\n');
    return 0;
}
