"""What holds for the step before while the line's database is away (`require_operation_offline`)."""

REFUSE, ALLOW, LOCAL = "refuse", "allow", "local"
POLICIES = (REFUSE, ALLOW, LOCAL)
