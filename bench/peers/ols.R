# R's time for a regression of 1,000,000 x 10 and of 100 x 5: milliseconds, best of three.
set.seed(1)
X <- matrix(rnorm(1e7), ncol = 10)
d <- data.frame(y = rnorm(1e6), X)
best <- function(f, times = 3) min(replicate(times, system.time(f())["elapsed"])) * 1000
cat(sprintf("R      lm 1,000,000 x 10, with summary        %8.1f ms\n", best(function() summary(lm(y ~ ., d)))))
s <- d[1:100, 1:6]
cat(sprintf("R      lm 100 x 5                             %8.3f ms\n",
            best(function() for (i in 1:200) lm(y ~ ., s)) / 200))
