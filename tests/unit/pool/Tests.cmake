# tests of src/pool
