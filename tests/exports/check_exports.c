/* Loads the shared library the way a host does and checks that both entry points are
 * found by their plain names, and that internal classes stay hidden. */
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
        return 2;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "cannot load %s: %s\n", argv[1], dlerror());
        return 1;
    }
    int failures = 0;
    const char* exported[] = {"CreateProxy", "CheckInXIDLTypes"};
    for (unsigned i = 0; i < sizeof exported / sizeof exported[0]; ++i) {
        if (dlsym(library, exported[i]) == NULL) {
            fprintf(stderr, "%s is not exported\n", exported[i]);
            ++failures;
        }
    }
    /* Core::ComponentProxyFactory::Instance() */
    const char* hidden[] = {"_ZN4Core21ComponentProxyFactory8InstanceEv"};
    for (unsigned i = 0; i < sizeof hidden / sizeof hidden[0]; ++i) {
        if (dlsym(library, hidden[i]) != NULL) {
            fprintf(stderr, "%s is exported but should be hidden\n", hidden[i]);
            ++failures;
        }
    }
    dlclose(library);
    if (failures == 0) {
        printf("entry points exported\n");
    }
    return failures == 0 ? 0 : 1;
}
