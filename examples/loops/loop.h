/*
 * What main.c needs of a loop; each file beside this one gives it that of one kind.
 */
#ifndef LOOP_H
#define LOOP_H

#ifdef __cplusplus
extern "C" {
#endif

/* Calls begin, then runs the loop until loop_stop(); end is called for SIGTERM. @return exit status */
int loop_run(void (*begin)(void), void (*end)(void));

/* Lets the loop serve the plugin, which is registered, until it is closed. @return 0, or -1 */
int loop_attach(void (*on_lost)(void));

/*
 * To be called when the plugin has made a request, or was closed, outside of its callbacks. Where the
 * loop can look by itself before it sleeps, this does nothing.
 */
void loop_asked(void);

/* There is one timer: it calls then once after that time, and what it was set for before is forgotten. */
void loop_after(int ms, void (*then)(void));

void loop_stop(void);

#ifdef __cplusplus
}
#endif

#endif
