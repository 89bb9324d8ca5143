/* A module with no entry points and no ModuleInfo. */
int vqBareModuleAnswer(void) { return 42; }
