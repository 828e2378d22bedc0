/* The least that a program can cost: the C run time, and a line of text. */
#include <stdio.h>

int main(void) {
    puts("usage: one_line");
    return 0;
}
