# tests of src/job
