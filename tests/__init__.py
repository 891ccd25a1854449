"""Tests of the whole program and of the appliance; the unit tests are in C++."""
