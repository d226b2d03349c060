# io module sources
