/* PIN entry that another thread cancels: a till's Cancel button, or a time-out of its own.
 *
 *   pin_cancel [SECONDS]   cancels after SECONDS (default 10) unless the customer finished
 *
 * A waiting call has no time limit. PosCancel (and only it, with its aliases) may come from
 * another thread, a signal handler or a window message: the waiting call then sends the
 * terminal one CAN and returns with the terminal's answer.
 *
 * Build: cc pin_cancel.c $(pkg-config --cflags --libs varnik) -pthread -o pin_cancel
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <varnik.h>

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t done_changed = PTHREAD_COND_INITIALIZER;
static int done;

static void* cancel_later(void* argument)
{
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += *(int*)argument;
    pthread_mutex_lock(&lock);
    while (!done && pthread_cond_timedwait(&done_changed, &lock, &until) == 0) {
    }
    int cancel = !done;
    pthread_mutex_unlock(&lock);
    if (cancel) {
        printf("cancelling\n");
        fflush(stdout);
        PosCancel();
    }
    return NULL;
}

int main(int argc, char** argv)
{
    int seconds = argc > 1 ? atoi(argv[1]) : 10;
    /* PinReadKey writes at most 64 bytes; the PIN block is the first 8. */
    unsigned char block[64] = {0};
    pthread_t canceller;
    pthread_create(&canceller, NULL, cancel_later, &seconds);

    printf("enter the PIN on the terminal...\n");
    fflush(stdout);
    int result = PinReadKey(block);

    pthread_mutex_lock(&lock);
    done = 1;
    pthread_cond_signal(&done_changed);
    pthread_mutex_unlock(&lock);
    pthread_join(canceller, NULL);

    if (result != 0) {
        fprintf(stderr, "PinReadKey: %d\n", result);
        return 1;
    }
    printf("PIN block:");
    for (int i = 0; i < 8; ++i)
        printf(" %02X", block[i]);
    printf("\n");
    return 0;
}
