/* A shared object that says which one it is. */

int which_shared_object(void);
int which_shared_object(void) { return WHICH; }
