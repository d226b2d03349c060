# synth module sources
