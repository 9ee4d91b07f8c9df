# R's time for stats_bench: means, deviations, ranges and correlations of 1,000,000 x 10, principal
# components of 200,000 x 20. Milliseconds, best of three.
set.seed(1)
X <- matrix(rnorm(1e7), ncol = 10)
Y <- matrix(rnorm(4e6), ncol = 20)
best <- function(f, times = 3) min(replicate(times, system.time(f())["elapsed"])) * 1000
cat(sprintf("R      mean, sd, range, cor 1,000,000 x 10    %8.1f ms\n", best(function()
  list(colMeans(X), apply(X, 2, sd), apply(X, 2, range), cor(X)))))
cat(sprintf("R      prcomp 200,000 x 20                    %8.1f ms\n", best(function() prcomp(Y))))
