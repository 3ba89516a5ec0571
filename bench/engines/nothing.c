/* bench/engines/nothing.c - a shared library with nothing in it. */
int benchNothing(void);

int benchNothing(void)
{
    return 0;
}
