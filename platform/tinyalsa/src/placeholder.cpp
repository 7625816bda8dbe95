// Replaced by the virtual-card backend.
