"""Simulated Marvane boards for tests in Python: see README.md, one folder up."""

from marvane_sim.program import Finished, Program, SimulationError, TimedOut, run
from marvane_sim.simulation import Board, Simulation

__all__ = ["Board", "Finished", "Program", "Simulation", "SimulationError", "TimedOut", "run"]
