"""Tests of practice/ that run no program of the product."""
