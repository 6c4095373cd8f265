// in progress
