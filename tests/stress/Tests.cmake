# many rounds at once
