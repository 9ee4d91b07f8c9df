# R's time for a Poisson and a Weibull regression of 200,000 x 5: milliseconds, best of three.
suppressMessages(library(survival))
set.seed(1)
n <- 200000
X <- matrix(rnorm(n * 5), ncol = 5)
s <- drop(0.3 + X %*% c(1 / 3, 1 / 4, -1 / 5, 1 / 9, -1 / 6))
d <- data.frame(y = rpois(n, exp(s)), X)
t <- data.frame(t = exp(s) * rweibull(n, 1 / 0.7), X)
best <- function(f) min(replicate(3, system.time(f())["elapsed"])) * 1000
cat(sprintf("R      poisson 200,000 x 5, with summary      %8.1f ms\n", best(function() summary(glm(y ~ ., poisson, d)))))
cat(sprintf("R      weibull 200,000 x 5, with summary      %8.1f ms\n",
            best(function() summary(survreg(Surv(t) ~ ., t, dist = "weibull")))))
