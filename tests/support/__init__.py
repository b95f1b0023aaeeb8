"""What the command tests share: private machines, expected texts, masks."""
