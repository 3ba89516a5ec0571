/* examples/hosts/smallest/host.c - the smallest host: it prints the page of the template index.htm,
 * which stands in the folder where it is called.
 *   cc host.c $(pkg-config --cflags --libs orvinterpreter) -o smallest
 *   ./smallest */
#include <fcntl.h>
#include <orvinterpreter.h>

static int32_t openTemplate(Interpreter *interpreter, const char *path)
{
    (void)interpreter;
    return open(path, O_RDONLY);
}

static int32_t answerNothing(Interpreter *interpreter, int32_t mode, const char *query,
                             QueryRow **rows, int32_t *owned)
{
    (void)interpreter, (void)mode, (void)query, (void)rows, (void)owned;
    return 0;
}

static int32_t noError(Interpreter *interpreter, const char **message)
{
    (void)interpreter, (void)message;
    return 0;
}

int main(void)
{
    const InterpreterCallbacks callbacks = {openTemplate, answerNothing, noError};
    Interpreter *interpreter = Orv_Interpreter_Create(&callbacks);
    Orv_Interpreter_SetVariable(interpreter, "user", "Ann");
    const int32_t result = Orv_Interpreter_Run(interpreter, "index.htm", 1);
    Orv_Interpreter_Destroy(interpreter);
    return result == ORV_RUN_DONE ? 0 : 1;
}
