// Empty on purpose: tolvex-driver takes its main from the library.
