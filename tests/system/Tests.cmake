# tests that start the real program
