"""What bench/run is made of."""
