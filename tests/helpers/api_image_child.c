/* The child that api_images_test runs: one command per run, named by the
 * first argument, reporting on standard output (or standard error) so that
 * the test reads what the child saw from its log files.
 *
 *   exit N       exits with status N
 *   args ...     prints each further argument as "<arg>" on its own line
 *   env NAME     prints NAME's value, or "(unset)"
 *   cwd          prints the working directory
 *   out TEXT     prints TEXT on standard output
 *   err TEXT     prints TEXT on standard error
 *   hang         ignores SIGTERM, says "hanging" and waits until it is killed
 *   fds          prints every open descriptor above 2 (POSIX) */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#include <direct.h>
#include <windows.h>
#define getcwd _getcwd
#else
#include <dirent.h>
#include <signal.h>
#include <unistd.h>
#endif

static int hang(void) {
#ifndef _WIN32
    signal(SIGTERM, SIG_IGN);
#endif
    puts("hanging");
    fflush(stdout);
#ifdef _WIN32
    Sleep(INFINITE);
#else
    for (;;) {
        pause();
    }
#endif
    return 0;
}

static int list_descriptors(void) {
#ifndef _WIN32
    DIR *dir = opendir("/proc/self/fd");
    if (dir == NULL) {
        return 3;
    }
    struct dirent *item;
    while ((item = readdir(dir)) != NULL) {
        int fd = atoi(item->d_name);
        if (item->d_name[0] != '.' && fd > 2 && fd != dirfd(dir)) {
            printf("%d\n", fd);
        }
    }
    closedir(dir);
#endif
    return 0;
}

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: api_image_child <command> ...\n");
        return 2;
    }
    const char *command = argv[1];
    if (strcmp(command, "exit") == 0 && argc == 3) {
        return atoi(argv[2]);
    }
    if (strcmp(command, "args") == 0) {
        for (int i = 2; i < argc; ++i) {
            printf("<%s>\n", argv[i]);
        }
        return 0;
    }
    if (strcmp(command, "env") == 0 && argc == 3) {
        const char *value = getenv(argv[2]);
        puts(value != NULL ? value : "(unset)");
        return 0;
    }
    if (strcmp(command, "cwd") == 0) {
        char buffer[4096];
        if (getcwd(buffer, sizeof buffer) == NULL) {
            return 3;
        }
        puts(buffer);
        return 0;
    }
    if (strcmp(command, "out") == 0 && argc == 3) {
        puts(argv[2]);
        return 0;
    }
    if (strcmp(command, "err") == 0 && argc == 3) {
        fprintf(stderr, "%s\n", argv[2]);
        return 0;
    }
    if (strcmp(command, "hang") == 0) {
        return hang();
    }
    if (strcmp(command, "fds") == 0) {
        return list_descriptors();
    }
    fprintf(stderr, "api_image_child: unknown command %s\n", command);
    return 2;
}
