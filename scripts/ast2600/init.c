/* SPDX-License-Identifier: Apache-2.0 */
/* First process of the machine of ./dev arch ast2600: runs the commands in /commands and says what
 * came of each. */
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

enum { kLine = 256, kWords = 16 };

/* An initramfs that was made without root has no device to begin with. */
static void open_console(void) {
    int console;
    mount("dev", "/dev", "devtmpfs", 0, NULL);
    console = open("/dev/console", O_RDWR);
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        dup2(console, stream);
    }
}

/* The board that the kernel found itself on, by its device tree. */
static void say_machine(void) {
    char model[kLine] = "";
    struct utsname system;
    FILE* file = fopen("/proc/device-tree/model", "r");
    if (file != NULL) {
        if (fgets(model, sizeof model, file) == NULL) {
            model[0] = '\0';
        }
        fclose(file);
    }
    uname(&system);
    printf("@machine %s, %s, Linux %s\n", model, system.machine, system.release);
}

/* A program that wrote to the console itself would take it for a terminal. */
static void pass_on(int from) {
    char part[kLine];
    ssize_t length;
    while ((length = read(from, part, sizeof part)) > 0) {
        fwrite(part, 1, (size_t)length, stdout);
    }
    close(from);
}

static void run(char* line) {
    char* words[kWords + 1] = {NULL};
    char* rest = line;
    int status = -1;
    int output[2];
    pid_t child;
    printf("@begin %s\n", line);
    fflush(stdout);
    for (int i = 0; i < kWords; ++i) {
        words[i] = strtok_r(rest, " ", &rest);
    }
    if (pipe(output) != 0) {
        perror("pipe");
        return;
    }
    child = fork();
    if (child == 0) {
        dup2(output[1], STDOUT_FILENO);
        dup2(output[1], STDERR_FILENO);
        close(output[0]);
        close(output[1]);
        execv(words[0], words);
        perror(words[0]);
        _exit(127);
    }
    close(output[1]);
    pass_on(output[0]);
    waitpid(child, &status, 0);
    printf("@status %d\n", WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    fflush(stdout);
}

int main(void) {
    char line[kLine];
    FILE* commands;
    open_console();
    mount("proc", "/proc", "proc", 0, NULL);
    mount("sys", "/sys", "sysfs", 0, NULL);
    mount("tmp", "/tmp", "tmpfs", 0, NULL);
    say_machine();
    commands = fopen("/commands", "r");
    while (commands != NULL && fgets(line, sizeof line, commands) != NULL) {
        line[strcspn(line, "\n")] = '\0';
        run(line);
    }
    printf("@end\n");
    fflush(stdout);
    tcdrain(STDOUT_FILENO);
    /* The emulator has no switch to turn off: it ends at a restart. */
    reboot(RB_AUTOBOOT);
    for (;;) {
        pause();
    }
}
