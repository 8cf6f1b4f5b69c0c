# tests of src/sync
