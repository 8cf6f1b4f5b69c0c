# tests of src/action
