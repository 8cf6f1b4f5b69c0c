# The real program, treated badly at random.
kennly_storm(StartStorm)
kennly_storm(ShutdownStorm)
kennly_storm(ReloadStorm)
kennly_storm(HeartbeatStorm)
