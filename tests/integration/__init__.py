"""The daemon and its clients, end to end in simulated cells.

python3 -m unittest tests.integration.test_clients runs a module, in the root of the source tree.
"""
