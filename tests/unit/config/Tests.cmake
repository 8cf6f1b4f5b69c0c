# tests of src/config
