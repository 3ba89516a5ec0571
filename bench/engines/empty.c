/* bench/engines/empty.c - a program that does nothing. It is built alone, linked
 * with a library in which there is nothing, and linked with the library. */
int main(void)
{
    return 0;
}
