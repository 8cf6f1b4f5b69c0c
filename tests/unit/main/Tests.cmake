# tests of src/main
